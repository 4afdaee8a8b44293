#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/types.h>

/// An object with named values of its own, to be used on its thread. It adds no virtual operation
/// to QObject's.
class HOST_PLUGIN_MANAGEMENT_EXPORT DDataStorage : public DObject
{
    Q_OBJECT

public:
    explicit DDataStorage(QObject* parent = nullptr);
    ~DDataStorage() override;

protected:
    /// The value stored under \a name, or an invalid one. \a found, when given, tells which.
    QVariant storedValue(const QString& name, bool* found = nullptr) const;
    /// Stores \a value under \a name. True when that changed what was there.
    bool storeValue(const QString& name, const QVariant& value);

private:
    ParameterMap m_values;
};
