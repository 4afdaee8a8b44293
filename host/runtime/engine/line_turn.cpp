#include <runtime/engine/line_turn.h>

#include <utility>

bool LineTurn::noteSilence(qint64 nowUs)
{
    if (!m_isShared || ++m_silences < patience) {
        return false;
    }
    m_pausedUntilUs = nowUs + qint64{m_backoff.nextDelayMs()} * 1000;
    return m_silences == patience;
}

// True when the device had been paused for it.
bool LineTurn::forgetSilence()
{
    const bool wasPaused = std::exchange(m_silences, 0) >= patience;
    if (wasPaused) {
        m_pausedUntilUs = 0;
        m_backoff.reset();
    }
    return wasPaused;
}
