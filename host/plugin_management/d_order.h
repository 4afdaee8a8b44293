#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

/// One run of a command, as the host's user sees it.
struct DOrder
{
    enum class State { Running, Done, Failed, Stopped };

    quint64 id = 0; ///< from 1, never used again in this process
    QString command; ///< its name
    ParameterMap parameters; ///< as given, declared defaults filled in
    bool recurrent = false; ///< goes on until stopped: its command has a stop name
    State state = State::Running;
    ParameterMap results; ///< last value of each result that was published
    /// Why it failed. Of one that runs or was stopped the last trouble, None of one that is done.
    OrderFailure failure;
};
