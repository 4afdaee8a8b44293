#pragma once

#include <runtime/loop/reactor.h>

#include <optional>

/// A time that keeps moving away, such as a limit that nearly always is met: moving it further off
/// costs a store. Belongs to the thread that sets it first.
class Deadline
{
public:
    using Handler = fastdelegate::Delegate<void>;
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    explicit Deadline(const Handler& onCome) : m_onCome(onCome) { }
    ~Deadline()
    {
        if (m_place) {
            m_reactor->cancel(*m_place);
        }
    }
    Q_DISABLE_COPY(Deadline)

    /// Calls the handler once the clock shows \a dueUs; never: not at all.
    void set(qint64 dueUs)
    {
        m_dueUs = dueUs;
        if (dueUs < m_wakeUs) {
            schedule();
        }
    }

private:
    friend class Reactor;

    void schedule()
    {
        if (!m_reactor) {
            m_reactor = Reactor::ofThisThread();
        }
        if (m_place) {
            m_reactor->cancel(*m_place);
        }
        m_place = m_reactor->schedule(m_dueUs, this);
        m_wakeUs = m_dueUs;
    }

    // The reactor has taken the deadline out. The handler may end it.
    void come(qint64 nowUs)
    {
        m_place.reset();
        m_wakeUs = never;
        if (m_dueUs > nowUs) {
            if (m_dueUs != never) {
                schedule();
            }
            return;
        }
        m_dueUs = never;
        const Handler onCome = m_onCome;
        onCome();
    }

    qint64 m_wakeUs = never; ///< when the reactor will call
    qint64 m_dueUs = never;
    Handler m_onCome;
    std::shared_ptr<Reactor> m_reactor;
    std::optional<Reactor::Deadlines::iterator> m_place; ///< among the reactor's
};
