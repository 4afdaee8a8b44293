#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

/// What the host sees of a worker: orders in by slots, outcomes out by signals.
class HOST_PLUGIN_MANAGEMENT_EXPORT ILocalWorker
{
public:
    virtual ~ILocalWorker() = default;

    /// Takes an order for the worker function \a function. False when it cannot be taken; the
    /// reason is then put into \a refusal and nothing else will be heard of the order.
    ///
    /// \a timeoutMs runs from the write of the request; 0 is the host's own limit. The parameters
    /// "recurrent" (bool) and "recurrentInterval" (ms) make the order repeat until it is stopped.
    virtual bool sltStartOrder(quint64 orderId, const QString& function,
                               const ParameterMap& parameters, int timeoutMs, QString& refusal) = 0;
    /// Ends an order without an outcome. False when the worker has no such order.
    virtual bool sltStopOrder(quint64 orderId) = 0;
    /// The connection came or went.
    virtual void sigStatusChanged(bool connected) = 0;
    /// The order's function is being called.
    virtual void sigOrderRunning(quint64 orderId) = 0;
    /// The order has ended well.
    virtual void sigOrderDone(quint64 orderId, const ParameterMap& reply) = 0;
    /// An answer of an order that goes on: a repetition, good or failed, or a connection's state.
    virtual void sigOrderAnswer(quint64 orderId, const ParameterMap& reply) = 0;
    /// The order has failed; the map says why (see order_failure.h).
    virtual void sigOrderError(quint64 orderId, const ParameterMap& reply) = 0;
};
