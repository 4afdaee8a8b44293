#include <plugin_management/d_abstract_worker.h>

#include <plugin_management/thread_rule.h>
#include <runtime/shell/worker_shell.h>

DAbstractWorker::DAbstractWorker(const QString& name) : m_shell(new WorkerShell(*this))
{
    setObjectName(name);
    declareFunction(QStringLiteral("connect"), WorkerFunction(this, &DAbstractWorker::cbConnect));
    declareFunction(QStringLiteral("disconnect"),
                    WorkerFunction(this, &DAbstractWorker::cbDisconnect));
}

DAbstractWorker::~DAbstractWorker() { m_shell->leave(); }

bool DAbstractWorker::sltStartOrder(quint64 orderId, const QString& function,
                                    const ParameterMap& parameters, int timeoutMs, QString& refusal)
{
    assertOwnThread(*this, "DAbstractWorker::sltStartOrder()");
    return m_shell->start(orderId, function, parameters, timeoutMs, refusal);
}

bool DAbstractWorker::sltStopOrder(quint64 orderId)
{
    assertOwnThread(*this, "DAbstractWorker::sltStopOrder()");
    return m_shell->stop(orderId);
}

bool DAbstractWorker::isConnected() const
{
    return m_socket && m_socket->state() == QAbstractSocket::ConnectedState;
}

bool DAbstractWorker::cbConnect(const unsigned long long orderId, const ParameterMap& parameters,
                                ParameterMap& result)
{
    Q_UNUSED(orderId)
    return m_shell->connectLink(parameters, result);
}

bool DAbstractWorker::cbDisconnect(const unsigned long long orderId, const ParameterMap& parameters,
                                   ParameterMap& result)
{
    Q_UNUSED(orderId)
    Q_UNUSED(parameters)
    return m_shell->disconnectLink(result);
}

ParameterMap DAbstractWorker::cbReply(const QByteArray& reply)
{
    return {{QStringLiteral("doneOk"), true}, {QStringLiteral("values"), reply}};
}

WorkerStatistics DAbstractWorker::statistics() const
{
    assertOwnThread(*this, "DAbstractWorker::statistics()");
    return m_shell->engine().statistics();
}

void DAbstractWorker::setFrameTracer(const FrameTracer& tracer)
{
    assertOwnThread(*this, "DAbstractWorker::setFrameTracer()");
    m_shell->setTracer(tracer);
}

void DAbstractWorker::declareFunction(const QString& name, const WorkerFunction& function)
{
    m_shell->declareFunction(name, function);
}

void DAbstractWorker::setKeepAliveFunction(const QString& name, const ParameterMap& parameters,
                                           int intervalMs)
{
    m_shell->engine().setKeepAlive(name, parameters, intervalMs);
}

void DAbstractWorker::setReplyFraming(const ReplyFraming& framing)
{
    m_shell->engine().setFraming(framing);
}

unsigned long long DAbstractWorker::currentOrderId() const { return m_shell->engine().currentId(); }

ParameterMap DAbstractWorker::getCurrentOrderParameters() const
{
    return m_shell->engine().currentParameters();
}

void DAbstractWorker::setAsyncResult(unsigned long long orderId, ParameterMap& result)
{
    Q_UNUSED(orderId)
    Q_UNUSED(result)
    assertOwnThread(*this, "DAbstractWorker::setAsyncResult()");
    m_shell->engine().expectReply();
}

bool DAbstractWorker::writeRequest(unsigned long long orderId, const QByteArray& request,
                                   ParameterMap& result)
{
    assertOwnThread(*this, "DAbstractWorker::writeRequest()");
    if (!isConnected()) {
        return false;
    }
    m_socket->readAll(); // must not be taken for this reply
    if (!isConnected() || m_socket->write(request) <= 0) {
        return false;
    }
    setAsyncResult(orderId, result);
    return true;
}
