#include <plugin_management/d_data_storage.h>

DDataStorage::DDataStorage(QObject* parent) : DObject(parent) { }

DDataStorage::~DDataStorage() = default;

QVariant DDataStorage::storedValue(const QString& name, bool* found) const
{
    const auto it = m_values.constFind(name);
    const bool there = it != m_values.constEnd();
    if (found != nullptr) {
        *found = there;
    }
    return there ? it.value() : QVariant();
}

bool DDataStorage::storeValue(const QString& name, const QVariant& value)
{
    const auto it = m_values.find(name);
    if (it == m_values.end()) {
        m_values.insert(name, value);
        return true;
    }
    if (it.value() == value) {
        return false;
    }
    it.value() = value;
    return true;
}
