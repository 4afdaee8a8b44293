#pragma once

#include <QtGlobal>

/// What a worker has seen since it was made: of instructions that ask the device, not of "connect",
/// "disconnect" and the keep-alive. A repetition counts as one. What failed is counted by its
/// OrderFailure::Code; what was stopped is not counted.
struct WorkerStatistics
{
    quint64 done = 0; ///< ended well
    quint64 timeouts = 0;
    quint64 exceptions = 0;
    quint64 badReplies = 0;
    quint64 notConnected = 0;
    quint64 otherFailures = 0;
    quint64 ticksSkipped = 0; ///< repetitions that fell due while the one before was pending
    quint64 reconnects = 0; ///< connections opened after the first one
    quint64 droppedBytes = 0; ///< bytes that answered no request: late, unsolicited, or to a stop
    quint64 droppedReplies = 0; ///< whole replies among them

    // From the call of the function, just before its write, to the whole reply, in microseconds,
    // the keep-alive's included; 0 before the first reply.
    quint64 roundTripLeastUs = 0;
    quint64 roundTripMeanUs = 0;
    quint64 roundTripP99Us = 0; ///< 99 % were not longer (within 12 %)
    quint64 roundTripMostUs = 0;
};
