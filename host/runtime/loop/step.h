#pragma once

#include <runtime/loop/reactor_call.h>

/// What is to be done about what came on a descriptor, and goes by steps: everybody's first step is
/// made before anybody's second. The code of an order is some 49 kB, more than instruction caches
/// hold; by steps each part of it is fetched once for all that are ready, which takes a sixth to a
/// third of the processor time off an order of 10 devices and more.
///
/// Nothing waits for a handler that runs an event loop: what is left of all others is done before
/// that loop sleeps or brings anything else. Belongs to the thread that sets it first.
class Step final : public ReactorCall
{
public:
    explicit Step(const Handler& onStep) : ReactorCall(onStep) { }
    ~Step() { unset(); }
    Q_DISABLE_COPY(Step)

    /// Several are ready, whose steps are gathered.
    bool isWanted() { return reactor().gathersSteps(); }
    /// Others have steps to make that were set before.
    bool othersWait() { return reactor().hasSteps(); }

    /// Calls the handler once, after those that were set before.
    void set()
    {
        if (ask()) {
            reactor().makeStep(this);
        }
    }

    void unset()
    {
        if (takeBack()) {
            reactor().forget(this);
        }
    }
};
