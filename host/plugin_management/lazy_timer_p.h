#pragma once

#include <QTimer>

#include <chrono>
#include <limits>

/// Microseconds of a clock that never goes back.
inline qint64 steadyNowUs()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

inline qint64 steadyNowMs() { return steadyNowUs() / 1000; }

/// A single-shot timer for a due time that keeps moving away, such as a time limit that nearly
/// always is met: moving it further off costs a store, the event loop's timer stays as it is.
class LazyTimer : public QTimer
{
public:
    template <typename Function>
    LazyTimer(QObject* parent, Function onDue) : QTimer(parent)
    {
        setSingleShot(true);
        setTimerType(Qt::PreciseTimer);
        connect(this, &QTimer::timeout, this, [this, onDue] {
            if (hasCome()) {
                onDue();
            }
        });
    }

    void arm(qint64 dueMs)
    {
        m_dueMs = dueMs;
        if (!isActive() || m_startedForMs > dueMs) {
            startFor(steadyNowMs());
        }
    }

    void disarm() { m_dueMs = never; }

private:
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    bool hasCome()
    {
        const qint64 nowMs = steadyNowMs();
        if (m_dueMs > nowMs) {
            if (m_dueMs != never) {
                startFor(nowMs);
            }
            return false;
        }
        m_dueMs = never;
        return true;
    }

    void startFor(qint64 nowMs)
    {
        m_startedForMs = m_dueMs;
        start(static_cast<int>(std::max<qint64>(0, m_dueMs - nowMs)));
    }

    qint64 m_dueMs = never;
    qint64 m_startedForMs = never;
};
