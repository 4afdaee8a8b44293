#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/i_local_worker.h>
#include <plugin_management/reply_framing.h>
#include <plugin_management/worker_statistics.h>

#include <QAbstractSocket>
#include <QPointer>

#include <functional>

class WorkerShell;

/// The base of every worker: it owns the connection to one device and runs one instruction at a
/// time on the thread that makes it, where all of it is called. Names in it say "order" for an
/// instruction.
///
/// A derived worker declares named functions. A function builds a request, writes it to the socket
/// and calls setAsyncResult(); the reply comes to cbReply(), whose map ends the instruction. The
/// base adds the functions "connect" and "disconnect", the queue (1024 at most), time limits,
/// repetition, reconnection and the keep-alive. No reply ever answers another instruction: after a
/// time-out, or a reply that does not fit, the connection is re-opened before the next request is
/// written. A function that finds the connection ended, or bytes on it that nobody asked for,
/// before anything has left is called again, with the same parameters, on the new connection.
///
/// The order of the virtual operations is part of the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractWorker : public DObject, public ILocalWorker
{
    Q_OBJECT

public:
    /// \a name becomes the object's name.
    explicit DAbstractWorker(const QString& name);
    /// Closes the connection. What is pending ends without an outcome; the plug-in object, which
    /// owns the worker, ends the orders before.
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
    /// True when requests can be written now: the socket is connected.
    virtual bool isConnected() const;

protected:
    /// "connect": opens a TCP connection to "host" (an address, or a name, which is looked up on a
    /// thread of its own) and "port" (1 to 65535), and keeps it until the instruction is stopped.
    /// Each attempt may take the instruction's time limit; a first one that fails ends the
    /// instruction. Answers "connected": true when the connection is made and "disconnected": true
    /// when it is lost; it is then re-opened for ever, after delays that double from 250 ms to
    /// 15 s, each drawn between half and one and a half of that.
    ///
    /// "keepAliveFunction" names another function than that of setKeepAliveFunction(), called with
    /// its own name under this key and with "register" (the number given as
    /// "keepAliveFunctionRegister", 0 to 65535, 0 when there is none).
    ///
    /// False, with an OrderFailure in \a result, when there is a connect already, a parameter is
    /// wrong, or it is called otherwise than as the worker's function.
    virtual bool cbConnect(const unsigned long long orderId, const ParameterMap& parameters,
                           ParameterMap& result);
    /// "disconnect": closes the connection and answers "disconnected": true. A connect that has not
    /// been stopped is done with it. No reply that nobody waits for holds it up.
    virtual bool cbDisconnect(const unsigned long long orderId, const ParameterMap& parameters,
                              ParameterMap& result);
    /// The reply hook: judges one reply to the request in flight, and returns what it says. Called
    /// once per request, with one whole frame, or all that came when the frame's length is
    /// implausible; never for the keep-alive or a stopped instruction. The default returns the
    /// frame under "values".
    ///
    /// The instruction succeeds unless the map's "doneOk" is false: then it fails as a bad reply,
    /// or with the map's own OrderFailure. What the framing finds goes before that: a reply that
    /// cannot answer the request (ReplyFraming::answers(), bytes behind it, an implausible length)
    /// is a bad reply and an exception (ReplyFraming::exceptionCode()) a device exception, whatever
    /// is returned here. After a bad reply the connection is re-opened.
    virtual ParameterMap cbReply(const QByteArray& reply);

public:
    /// What has been counted since the worker was made.
    WorkerStatistics statistics() const;
    /// Is given the bytes that leave (\a outgoing) or arrive: as they are written and read, so that
    /// of a reply in pieces each piece comes by itself. Called when the code that reads or writes
    /// them has returned. An empty function ends it.
    using FrameTracer = std::function<void(bool outgoing, const QByteArray& frame)>;
    void setFrameTracer(const FrameTracer& tracer);

protected:
    /// Makes \a function callable as \a name. One that has the name already is replaced, that of
    /// the base included.
    void declareFunction(const QString& name, const WorkerFunction& function);
    /// The function to call, as instruction 0, after \a intervalMs without traffic while nothing is
    /// to be asked; 0 or less: none. Any reply is life, none within the time limit of "connect" a
    /// lost connection. One that sends nothing is warned of, and not called again on that
    /// connection.
    void setKeepAliveFunction(const QString& name, const ParameterMap& parameters, int intervalMs);
    /// Replaces the default framing, mbapFraming(). It is not copied, and must live as long as the
    /// worker: make it a constant. To be set before "connect".
    void setReplyFraming(const ReplyFraming& framing);
    /// The instruction whose function is called, whose request is out, or whose reply is judged; 0
    /// for the keep-alive and when there is none.
    unsigned long long currentOrderId() const;
    /// A copy of that instruction's parameters; empty when there is none.
    ParameterMap getCurrentOrderParameters() const;
    /// Leaves the instruction open after its function has returned true: its outcome comes with the
    /// reply or the time limit. To be called within the function, with what the function was given.
    void setAsyncResult(unsigned long long orderId, ParameterMap& result);
    /// All that a worker function does at its end: drops what has come late, writes \a request and
    /// leaves the instruction open for the reply. False when there is no connection to write to. To
    /// be returned by the function.
    bool writeRequest(unsigned long long orderId, const QByteArray& request, ParameterMap& result);

    /// The connection; owned by the base, null before the first "connect". Unbuffered: what is
    /// written leaves within write(). Only to be read from (readAll(), before the write), written
    /// to, and asked for its state and the peer's address.
    QPointer<QAbstractSocket> m_socket;
    /// For the derived worker, which may keep here what it needs to judge the reply. The base
    /// leaves it alone.
    ParameterMap m_requestParameters;
    ParameterMap m_connectionSettings; ///< the parameters of the last "connect" that was accepted

private:
    friend class DAbstractPlugin;
    friend class ForeignCalls;
    friend class OrderShell;
    friend class WorkerShell;
    WorkerShell* m_shell; ///< goes with the worker, or later when it is at work
};
