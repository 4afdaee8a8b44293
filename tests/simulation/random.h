#pragma once

#include <QtGlobal>

/// Draws that are the same on any machine: the counter is mixed as by splitmix64.
class Random
{
public:
    /// Each \a stream of a seed has draws of its own, so that one part of a world can be left out
    /// without another one's changing.
    explicit Random(quint64 seed, quint64 stream = 0) : m_state(mixed(seed) ^ mixed(~stream)) { }

    quint64 next() { return mixed(m_state += step); }
    /// 0 to \a limit - 1.
    int below(int limit) { return static_cast<int>(next() % static_cast<quint64>(limit)); }
    int between(int least, int most) { return least + below(most - least + 1); }
    bool oneIn(int count) { return below(count) == 0; }
    /// As often of a thousand.
    bool perMille(int often) { return below(1000) < often; }
    /// Between both, small ones as often as large ones.
    qint64 spread(qint64 least, qint64 most)
    {
        qint64 limit = least;
        while (limit < most && !oneIn(4)) {
            limit *= 2;
        }
        limit = qMin(limit, most);
        return least + static_cast<qint64>(next() % static_cast<quint64>(limit - least + 1));
    }

    static quint64 mixed(quint64 bits)
    {
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9U;
        bits = (bits ^ bits >> 27) * 0x94D049BB133111EBU;
        return bits ^ bits >> 31;
    }

private:
    static constexpr quint64 step = 0x9E3779B97F4A7C15U;
    quint64 m_state;
};
