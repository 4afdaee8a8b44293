#pragma once

#include <runtime/loop/reactor.h>

#include <utility>

/// A call that the reactor of a thread is asked for, and makes once: what BeforeSleep and Step have
/// in common. Belongs to the thread that asks for it first.
class ReactorCall
{
public:
    using Handler = fastdelegate::Delegate<void>;

    Q_DISABLE_COPY(ReactorCall)

    bool isSet() const { return m_isSet; }

protected:
    explicit ReactorCall(const Handler& handler) : m_handler(handler) { }
    ~ReactorCall() = default;

    Reactor& reactor()
    {
        if (!m_reactor) {
            m_reactor = Reactor::ofThisThread();
        }
        return *m_reactor;
    }

    /// True when it was not asked for before.
    bool ask() { return !std::exchange(m_isSet, true); }
    /// True when it was.
    bool takeBack() { return std::exchange(m_isSet, false); }

private:
    friend class Reactor;

    // The handler may end it.
    void come()
    {
        m_isSet = false;
        const Handler handler = m_handler;
        handler();
    }

    Handler m_handler;
    std::shared_ptr<Reactor> m_reactor;
    bool m_isSet = false;
};
