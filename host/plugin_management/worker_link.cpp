// What a worker's engine does about its connection: the connect order, the coming and going of the
// link, and the keep-alive.

#include <plugin_management/worker_engine_p.h>

namespace {

using Code = OrderFailure::Code;

constexpr uint largestPort = 0xFFFF;

} // namespace

bool WorkerEngine::beginConnect(quint64 id, const ParameterMap& parameters, ParameterMap& result)
{
    QString refusal;
    if (!connectAllowed(parameters, refusal) || !chooseKeepAlive(parameters, refusal)) {
        result = failure(Code::Usage, refusal).toReply();
        result.insert(QStringLiteral("connected"), m_connection.isOpen());
        return false;
    }
    m_worker.m_connectionSettings = parameters;
    m_connectId = id;
    m_connectBegun = true;
    m_opensFirst = true;
    m_connection.open({parameters.value(QStringLiteral("host")).toString().trimmed(),
                       static_cast<quint16>(parameters.value(QStringLiteral("port")).toUInt()),
                       m_current->timeoutMs});
    return true;
}

bool WorkerEngine::connectAllowed(const ParameterMap& parameters, QString& refusal) const
{
    bool portIsNumber = false;
    const uint port = parameters.value(QStringLiteral("port")).toUInt(&portIsNumber);
    if (m_connectId != 0) {
        refusal = QStringLiteral("already connected to %1; disconnect first").arg(endpointText());
    } else if (parameters.value(QStringLiteral("host")).toString().trimmed().isEmpty()) {
        refusal = QStringLiteral("parameter 'host' is empty; name the device's address");
    } else if (!portIsNumber || port == 0 || port > largestPort) {
        refusal = QStringLiteral("parameter 'port': '%1' is not a number 1 to %2")
                      .arg(parameters.value(QStringLiteral("port")).toString(),
                           QString::number(largestPort));
    }
    return refusal.isEmpty();
}

bool WorkerEngine::chooseKeepAlive(const ParameterMap& parameters, QString& refusal)
{
    m_keepAlive = m_defaultKeepAlive;
    const QString function = parameters.value(QStringLiteral("keepAliveFunction")).toString();
    if (function.isEmpty()) {
        return true;
    }
    const QString text = parameters.value(QStringLiteral("keepAliveFunctionRegister")).toString();
    bool isNumber = text.isEmpty(); // none given: the first register
    const uint number = isNumber ? 0 : text.toUInt(&isNumber);
    if (!m_functions.contains(function)) {
        refusal = QStringLiteral("parameter 'keepAliveFunction': the worker has no function '%1'")
                      .arg(function);
    } else if (!isNumber) {
        refusal =
            QStringLiteral("parameter 'keepAliveFunctionRegister': '%1' is not a number").arg(text);
    }
    m_keepAlive.function = function;
    m_keepAlive.parameters = {{QStringLiteral("keepAliveFunction"), function},
                              {QStringLiteral("register"), number}};
    return refusal.isEmpty();
}

bool WorkerEngine::disconnectNow(ParameterMap& result)
{
    const bool wasOpen = m_connection.isOpen();
    const quint64 connectId = std::exchange(m_connectId, 0);
    m_connection.close();
    result.insert(QStringLiteral("disconnected"), true);
    if (wasOpen) {
        emit m_worker.sigStatusChanged(false);
    }
    if (connectId != 0) { // disconnected without being stopped: that is its end
        tell(Outcome::Done, connectId, result);
    }
    return true;
}

void WorkerEngine::handleOpened(bool report)
{
    const Hold hold(this);
    WorkerSocket* socket = m_connection.socket();
    socket->setWatch(
        [](void* engine, bool outgoing, const char* data, qint64 size) {
            static_cast<WorkerEngine*>(engine)->watchBytes(outgoing, data, static_cast<int>(size));
        },
        this);
    m_worker.m_socket = socket;
    m_statistics.reconnects += m_opensFirst ? 0 : 1;
    m_opensFirst = false;
    m_lastRequestUs = steadyNowUs();
    if (m_keepAlive.intervalMs > 0) {
        m_silence.arm(m_lastRequestUs / 1000 + m_keepAlive.intervalMs);
    }
    if (report) {
        reportState(true);
    }
}

void WorkerEngine::handleOpenFailed(const QString& why)
{
    const Hold hold(this);
    const LifeGuard self(m_lifetime);
    const quint64 id = std::exchange(m_connectId, 0);
    const QString text = QStringLiteral("cannot connect to %1: %2").arg(endpointText(), why);
    ParameterMap reply = failure(Code::NotConnected, text).toReply();
    reply.insert(QStringLiteral("connected"), false);
    if (id != 0) {
        tell(Outcome::Error, id, reply);
    }
    if (self) {
        failWaiting(why);
    }
}

void WorkerEngine::handleLost(const QString& why)
{
    const Hold hold(this);
    const LifeGuard self(m_lifetime);
    const WorkerOrderPtr order = takeCurrent();
    if (order && m_requestHeadSize == 0 && order->id != 0 && !order->stopped) {
        m_queue.putBack(order); // the write found the socket ended: the device has seen nothing
    } else if (order) {
        const QString text = QStringLiteral("the connection to %1 was lost (%2)");
        settle(order, false, failure(Code::NotConnected, text.arg(endpointText(), why)).toReply());
    }
    if (self) {
        reportState(false, why);
    }
}

void WorkerEngine::reportState(bool connected, const QString& why)
{
    const LifeGuard self(m_lifetime);
    emit m_worker.sigStatusChanged(connected);
    if (!self || m_connectId == 0) {
        return;
    }
    ParameterMap reply;
    if (connected) {
        reply.insert(QStringLiteral("connected"), true);
    } else {
        reply = failure(Code::NotConnected, why).toReply();
        reply.remove(QStringLiteral("doneOk")); // a state, not a rejected reply
        reply.insert(QStringLiteral("disconnected"), true);
    }
    tell(Outcome::Answer, m_connectId, reply);
}

void WorkerEngine::handleSilence()
{
    if (!m_connection.isOpen() || m_keepAlive.intervalMs <= 0) {
        return;
    }
    const qint64 nowMs = steadyNowMs();
    const qint64 dueMs = m_lastRequestUs / 1000 + m_keepAlive.intervalMs;
    const bool busy = m_current || m_pumping;
    m_silence.arm(busy || dueMs <= nowMs ? nowMs + m_keepAlive.intervalMs : dueMs);
    if (busy || dueMs > nowMs) {
        return;
    }
    auto order = std::make_shared<WorkerOrder>();
    order->function = m_functions.value(m_keepAlive.function).call;
    order->parameters = m_keepAlive.parameters;
    order->timeoutMs =
        m_connection.endpoint().limitMs > 0 ? m_connection.endpoint().limitMs : defaultLimitMs;
    if (!order->function.empty()) {
        const Hold hold(this);
        run(order);
    }
}
