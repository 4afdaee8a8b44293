#pragma once

#include <plugin_management/event_hub_p.h>

#include <optional>

/// A single-shot timer for a due time that keeps moving away, such as a time limit that nearly
/// always is met: moving it further off costs a store. Belongs to the thread that arms it first.
class LazyTimer
{
public:
    using Handler = fastdelegate::Delegate<void>;

    explicit LazyTimer(const Handler& onDue) : m_onDue(onDue) { }
    ~LazyTimer()
    {
        if (m_place) {
            m_hub->cancel(*m_place);
        }
    }
    Q_DISABLE_COPY(LazyTimer)

    void arm(qint64 dueMs)
    {
        m_dueMs = dueMs;
        if (!m_place || m_wakeMs > dueMs) {
            schedule();
        }
    }

    void disarm() { m_dueMs = never; }

private:
    friend class EventHub;
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    void schedule()
    {
        if (!m_hub) {
            m_hub = EventHub::ofThisThread();
        }
        if (m_place) {
            m_hub->cancel(*m_place);
        }
        m_place = m_hub->schedule(m_dueMs, this);
        m_wakeMs = m_dueMs;
    }

    // The hub has taken the timer out. The handler may end the timer.
    void wake(qint64 nowMs)
    {
        m_place.reset();
        if (m_dueMs > nowMs) {
            if (m_dueMs != never) {
                schedule();
            }
            return;
        }
        m_dueMs = never;
        const Handler onDue = m_onDue;
        onDue();
    }

    Handler m_onDue;
    std::shared_ptr<EventHub> m_hub;
    std::optional<EventHub::Timers::iterator> m_place; ///< among the hub's timers
    qint64 m_wakeMs = never; ///< when the hub will wake it
    qint64 m_dueMs = never;
};
