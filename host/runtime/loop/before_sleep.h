#pragma once

#include <runtime/loop/reactor.h>

/// What must not wait while the event loop sleeps: its handler is called once before that, also by
/// a loop that foreign code runs. Belongs to the thread that sets it first.
class BeforeSleep
{
public:
    using Handler = fastdelegate::Delegate<void>;

    explicit BeforeSleep(const Handler& onSleep) : m_onSleep(onSleep) { }
    ~BeforeSleep() { unset(); }
    Q_DISABLE_COPY(BeforeSleep)

    void set()
    {
        if (!m_reactor) {
            m_reactor = Reactor::ofThisThread();
        }
        if (!std::exchange(m_isSet, true)) {
            m_reactor->callBeforeSleep(this);
        }
    }

    void unset()
    {
        if (std::exchange(m_isSet, false)) {
            m_reactor->forget(this);
        }
    }

private:
    friend class Reactor;

    // The handler may end it.
    void come()
    {
        m_isSet = false;
        const Handler onSleep = m_onSleep;
        onSleep();
    }

    Handler m_onSleep;
    std::shared_ptr<Reactor> m_reactor;
    bool m_isSet = false;
};
