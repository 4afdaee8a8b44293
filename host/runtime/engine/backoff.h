#pragma once

#include <algorithm>
#include <random>

/// The delays between attempts to re-open a link: 250 ms doubling to 15 s, each drawn between half
/// and one and a half of that, so that many workers which lost a device at once do not come back at
/// once. The same seed gives the same delays on any machine.
class Backoff
{
public:
    explicit Backoff(unsigned seed) : m_random(seed) { }

    void reset() { m_stepMs = firstStepMs; }

    int nextDelayMs()
    {
        const int spread = static_cast<int>(m_random() % static_cast<unsigned>(m_stepMs + 1));
        const int delayMs = m_stepMs / 2 + spread;
        m_stepMs = std::min(2 * m_stepMs, longestStepMs);
        return delayMs;
    }

    static constexpr int firstStepMs = 250;
    static constexpr int longestStepMs = 15000;

private:
    std::minstd_rand m_random; // of which the standard says the very numbers
    int m_stepMs = firstStepMs;
};
