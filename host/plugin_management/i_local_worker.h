#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

/// What the host sees of a worker: instructions in by slots, outcomes out by signals. The names say
/// "order", and mean an instruction: one call of a worker function. Everything here is called on
/// the worker's thread. The order of the operations is part of the binary interface: add none, move
/// none.
class HOST_PLUGIN_MANAGEMENT_EXPORT ILocalWorker
{
public:
    virtual ~ILocalWorker() = default;

    /// Takes instruction \a orderId (not 0, and not in use) for the worker function \a function.
    /// False when it cannot be taken (no such function, 1024 wait already, a bad interval); the
    /// reason is then put into \a refusal, which must come empty, and nothing else will be heard of
    /// it. An outcome may come within this call.
    ///
    /// \a timeoutMs runs from the write of the request, for "connect" from each attempt to connect;
    /// 0 or less is the host's own limit, 5000 ms. With the parameter "recurrent" true, it repeats
    /// each "recurrentInterval" (1 to 86400000 ms), first now, until it is stopped.
    virtual bool sltStartOrder(quint64 orderId, const QString& function,
                               const ParameterMap& parameters, int timeoutMs, QString& refusal) = 0;
    /// Ends an instruction without an outcome. False when the worker has no such one. A request
    /// that is out already stays in flight until its reply or its time limit.
    virtual bool sltStopOrder(quint64 orderId) = 0;
    /// The connection came or went. Not told when it is replaced at once.
    virtual void sigStatusChanged(bool connected) = 0;
    /// The function is about to be called: at each repetition, and once more for an instruction of
    /// which nothing had left.
    virtual void sigOrderRunning(quint64 orderId) = 0;
    /// The instruction has ended well; \a reply is what the reply hook made of it, or the result
    /// of a function that answered at once.
    virtual void sigOrderDone(quint64 orderId, const ParameterMap& reply) = 0;
    /// An answer of an instruction that goes on: a repetition, good or failed, or a connection's
    /// state ("connected" true or "disconnected" true).
    virtual void sigOrderAnswer(quint64 orderId, const ParameterMap& reply) = 0;
    /// The instruction has failed and ended; the map says why (see order_failure.h).
    virtual void sigOrderError(quint64 orderId, const ParameterMap& reply) = 0;
};
