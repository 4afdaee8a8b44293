#pragma once

#include <QRandomGenerator>

#include <algorithm>

/// The delays between attempts to re-open a connection: 250 ms doubling to 15 s, each drawn between
/// half and one and a half of that, so that many workers which lost a device at once do not come
/// back at once.
class Backoff
{
public:
    void reset() { m_stepMs = firstStepMs; }

    int nextDelayMs()
    {
        const double spread = 0.5 + QRandomGenerator::global()->generateDouble();
        const int delayMs = static_cast<int>(m_stepMs * spread);
        m_stepMs = std::min(2 * m_stepMs, longestStepMs);
        return delayMs;
    }

    static constexpr int firstStepMs = 250;
    static constexpr int longestStepMs = 15000;

private:
    int m_stepMs = firstStepMs;
};
