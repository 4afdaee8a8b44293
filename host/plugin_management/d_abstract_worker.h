#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/i_local_worker.h>
#include <plugin_management/reply_framing.h>
#include <plugin_management/worker_statistics.h>

#include <QAbstractSocket>
#include <QPointer>

#include <functional>

class WorkerShell;

/// The base of every worker: it owns the connection to one device and runs one order at a time on
/// the thread that it lives on.
///
/// A derived worker declares named functions. A function builds a request, writes it to the socket
/// and calls setAsyncResult(); the reply comes to cbReply(), whose map ends the order. The base
/// adds the functions "connect" and "disconnect", the queue, time limits, repetition, reconnection
/// and the keep-alive. No reply ever answers another order: after a time-out, or a reply that does
/// not fit, the connection is re-opened before the next request is written.
///
/// The order of the virtual operations is part of the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractWorker : public DObject, public ILocalWorker
{
    Q_OBJECT

public:
    explicit DAbstractWorker(const QString& name);
    ~DAbstractWorker() override;

public slots:
    bool sltStartOrder(quint64 orderId, const QString& function, const ParameterMap& parameters,
                       int timeoutMs, QString& refusal) override;
    bool sltStopOrder(quint64 orderId) override;

signals:
    void sigStatusChanged(bool connected) override;
    void sigOrderRunning(quint64 orderId) override;
    void sigOrderDone(quint64 orderId, const ParameterMap& reply) override;
    void sigOrderAnswer(quint64 orderId, const ParameterMap& reply) override;
    void sigOrderError(quint64 orderId, const ParameterMap& reply) override;

public:
    /// True when requests can be written now.
    virtual bool isConnected() const;

protected:
    /// "connect": opens the connection to "host" and "port" (1 to 65535) within "timeout" ms (0:
    /// the host's own limit) and keeps it until the order is stopped. Answers "connected": true,
    /// and "disconnected": true when it is lost; it is then re-opened for ever.
    virtual bool cbConnect(const unsigned long long orderId, const ParameterMap& parameters,
                           ParameterMap& result);
    /// "disconnect": closes the connection and answers "disconnected": true.
    virtual bool cbDisconnect(const unsigned long long orderId, const ParameterMap& parameters,
                              ParameterMap& result);
    /// The reply hook: judges one reply to the request in flight. The map's "doneOk" tells whether
    /// the order succeeded. Called once per order, with one whole frame.
    virtual ParameterMap cbReply(const QByteArray& reply);

public:
    WorkerStatistics statistics() const;
    /// Shows every frame that leaves (\a outgoing) or arrives; an empty function ends it.
    using FrameTracer = std::function<void(bool outgoing, const QByteArray& frame)>;
    void setFrameTracer(const FrameTracer& tracer);

protected:
    /// Makes \a function callable as \a name. A name that is there already is replaced.
    void declareFunction(const QString& name, const WorkerFunction& function);
    /// The function to run after \a intervalMs without traffic; 0 or less: none.
    void setKeepAliveFunction(const QString& name, const ParameterMap& parameters, int intervalMs);
    /// Replaces the default framing, mbapFraming(). It must live as long as the worker.
    void setReplyFraming(const ReplyFraming& framing);
    /// The order whose function or reply is being handled, 0 for the keep-alive.
    unsigned long long currentOrderId() const;
    /// A copy of that order's parameters.
    ParameterMap getCurrentOrderParameters() const;
    /// Leaves the order open after its function has returned true: its outcome comes with the
    /// reply.
    void setAsyncResult(unsigned long long orderId, ParameterMap& result);
    /// All that a worker function does at its end: drops what has come late, writes \a request and
    /// leaves the order open for the reply. False when there is no connection to write to.
    bool writeRequest(unsigned long long orderId, const QByteArray& request, ParameterMap& result);

    QPointer<QAbstractSocket> m_socket; ///< the connection; null or dead when there is none
    ParameterMap m_requestParameters; ///< of the order in flight, as its function left them
    ParameterMap m_connectionSettings; ///< the parameters of "connect"

private:
    friend class ForeignCalls;
    friend class OrderShell;
    friend class WorkerShell;
    WorkerShell* m_shell; ///< goes with the worker, or later when it is at work
};
