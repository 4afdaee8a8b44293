#pragma once

#include <QtGlobal>

#include <algorithm>
#include <utility>
#include <vector>

/// What is under way, by its id. Ids only grow, so a vector stays sorted by itself; and as there
/// are few entries at a time, mostly taken near their end, this costs no allocation per entry.
template <typename Value>
class IdTable
{
public:
    using Entry = std::pair<quint64, Value>;

    bool empty() const { return m_entries.empty(); }
    std::size_t size() const { return m_entries.size(); }
    const Value& first() const { return m_entries.front().second; }
    const std::vector<Entry>& entries() const { return m_entries; }

    /// Adds an entry; \a id must be larger than all before it.
    void append(quint64 id, Value value) { m_entries.emplace_back(id, std::move(value)); }

    /// The value with this id, null when there is none. Any change of the table ends the pointer.
    Value* find(quint64 id)
    {
        const auto it = position(id);
        return it != m_entries.end() ? &it->second : nullptr;
    }

    /// Removes an entry. False when there is none with this id.
    bool remove(quint64 id)
    {
        const auto it = position(id);
        if (it == m_entries.end()) {
            return false;
        }
        // Whoever the value's end calls must find the table whole.
        const Value keep = std::move(it->second);
        m_entries.erase(it);
        return true;
    }

private:
    auto position(quint64 id)
    {
        const auto it =
            std::lower_bound(m_entries.begin(), m_entries.end(), id,
                             [](const Entry& e, quint64 wanted) { return e.first < wanted; });
        return it != m_entries.end() && it->first == id ? it : m_entries.end();
    }

    std::vector<Entry> m_entries;
};
