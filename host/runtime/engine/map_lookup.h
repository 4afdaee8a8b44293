#pragma once

#include <plugin_management/types.h>

#include <cstring>

/// The value stored under \a name, null when there is none. Maps of orders have a few entries: a
/// walk that compares lengths and first letters first is several times cheaper than the search of
/// the tree, which orders texts at every step.
inline const QVariant* findValue(const ParameterMap& map, const QString& name)
{
    for (auto it = map.cbegin(), end = map.cend(); it != end; ++it) {
        const QString& key = it.key();
        if (key.size() == name.size() && *key.constData() == *name.constData()
            && std::memcmp(key.constData(), name.constData(),
                           static_cast<std::size_t>(name.size()) * sizeof(QChar))
                == 0) {
            return &it.value();
        }
    }
    return nullptr;
}
