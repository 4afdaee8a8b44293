#pragma once

#include <runtime/loop/reactor.h>

#include <utility>

/// What is to be done about what came on a descriptor, and goes by steps: everybody's first step is
/// made before anybody's second. The code of an order is some 49 kB, more than instruction caches
/// hold; by steps each part of it is fetched once for all that are ready, which takes a sixth to a
/// third of the processor time off an order of 10 devices and more.
///
/// Nothing waits for a handler that runs an event loop: what is left of all others is done before
/// that loop sleeps or brings anything else. Belongs to the thread that sets it first.
class Step
{
public:
    using Handler = fastdelegate::Delegate<void>;

    explicit Step(const Handler& onStep) : m_onStep(onStep) { }
    ~Step() { unset(); }
    Q_DISABLE_COPY(Step)

    /// Several are ready, whose steps are gathered.
    bool isWanted()
    {
        if (!m_reactor) {
            m_reactor = Reactor::ofThisThread();
        }
        return m_reactor->gathersSteps();
    }

    bool isSet() const { return m_isSet; }
    /// Others have steps to make that were set before.
    bool othersWait() const { return m_reactor && m_reactor->hasSteps(); }

    /// Calls the handler once, after those that were set before.
    void set()
    {
        if (!m_reactor) {
            m_reactor = Reactor::ofThisThread();
        }
        if (!std::exchange(m_isSet, true)) {
            m_reactor->makeStep(this);
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
        const Handler onStep = m_onStep;
        onStep();
    }

    Handler m_onStep;
    std::shared_ptr<Reactor> m_reactor;
    bool m_isSet = false;
};
