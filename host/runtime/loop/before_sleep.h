#pragma once

#include <runtime/loop/reactor_call.h>

/// What must not wait while the event loop sleeps: its handler is called once before that, also by
/// a loop that foreign code runs. Belongs to the thread that sets it first.
class BeforeSleep final : public ReactorCall
{
public:
    explicit BeforeSleep(const Handler& onSleep) : ReactorCall(onSleep) { }
    ~BeforeSleep() { unset(); }
    Q_DISABLE_COPY(BeforeSleep)

    void set()
    {
        if (ask()) {
            reactor().callBeforeSleep(this);
        }
    }

    void unset()
    {
        if (takeBack()) {
            reactor().forget(this);
        }
    }
};
