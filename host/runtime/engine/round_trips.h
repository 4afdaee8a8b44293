#pragma once

#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

/// The times from request to reply, in microseconds: exact minimum, mean and maximum, and quantiles
/// out of a histogram with eight classes a doubling (so within 12 %).
class RoundTrips
{
public:
    void add(qint64 us)
    {
        const quint64 value = us > 0 ? static_cast<quint64>(us) : 0;
        m_least = std::min(m_least, value);
        m_most = std::max(m_most, value);
        m_sum += value;
        ++m_count;
        ++m_classes[classOf(value)];
    }

    quint64 leastUs() const { return m_count > 0 ? m_least : 0; }
    quint64 mostUs() const { return m_most; }
    quint64 meanUs() const { return m_count > 0 ? m_sum / m_count : 0; }

    /// The time that \a percent of the round trips did not exceed.
    quint64 quantileUs(unsigned percent) const
    {
        const quint64 wanted = (m_count * percent + 99) / 100;
        quint64 seen = 0;
        for (std::size_t i = 0; i < m_classes.size(); ++i) {
            seen += m_classes[i];
            if (seen >= wanted && seen > 0) {
                return std::min(topOf(i), m_most);
            }
        }
        return 0;
    }

private:
    static constexpr unsigned perDoubling = 8;
    static constexpr unsigned bitsPerDoubling = 3;
    static constexpr std::size_t classes = 256;

    static std::size_t classOf(quint64 value)
    {
        if (value < perDoubling) {
            return static_cast<std::size_t>(value);
        }
        const unsigned top = 63u - static_cast<unsigned>(__builtin_clzll(value));
        const auto fine = (value >> (top - bitsPerDoubling)) - perDoubling;
        const std::size_t index = std::size_t{top - bitsPerDoubling + 1} * perDoubling + fine;
        return std::min(index, classes - 1);
    }

    // The largest value of a class.
    static quint64 topOf(std::size_t index)
    {
        if (index < perDoubling) {
            return index;
        }
        const auto doubling = index / perDoubling - 1;
        return (quint64{perDoubling + index % perDoubling + 1} << doubling) - 1;
    }

    quint64 m_least = std::numeric_limits<quint64>::max();
    quint64 m_most = 0;
    quint64 m_sum = 0;
    quint64 m_count = 0;
    std::array<quint32, classes> m_classes{};
};
