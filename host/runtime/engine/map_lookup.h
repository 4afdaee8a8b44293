#pragma once

#include <plugin_management/types.h>

#include <cstring>

/// As ==, but inline: to compare names so costs an order 190 instructions less.
inline bool isSameText(const QString& one, const QString& other)
{
    return one.size() == other.size()
        && (one.constData() == other.constData() // of one place in the code
            || std::memcmp(one.constData(), other.constData(),
                           static_cast<std::size_t>(one.size()) * sizeof(QChar))
                == 0);
}

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
