#pragma once

/// How driver-host ends. A signal that stops a one-shot order ends it with 128 + the signal.
enum ExitCode : int {
    ExitDone = 0,
    ExitOrderFailed = 1, ///< exception, bad reply, time-out, or refused by the module
    ExitUsage = 2, ///< also when it is started where it cannot begin
    ExitNoConnection = 3, ///< refused, unresolvable, connect time-out, or lost for good
    ExitNoModule = 4, ///< the module cannot be loaded
};
