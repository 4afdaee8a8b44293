#include <plugin_management/worker_engine_p.h>

#include <plugin_management/map_lookup_p.h>

#include <algorithm>
#include <cstring>

namespace {

using Code = OrderFailure::Code;

constexpr int longestIntervalMs = 24 * 60 * 60 * 1000;
constexpr int readChunk = 4096; // more than any frame, so that one read takes what is there

bool succeededIn(const ParameterMap& reply)
{
    const QVariant* done = findValue(reply, QStringLiteral("doneOk"));
    return done == nullptr || done->toBool();
}

// "recurrent" and "recurrentInterval" of an instruction; 0 for a one-shot order, -1 for an interval
// that is none.
int intervalOf(const ParameterMap& parameters)
{
    const QVariant* recurrent = findValue(parameters, QStringLiteral("recurrent"));
    if (recurrent == nullptr || !recurrent->toBool()) {
        return 0;
    }
    bool ok = false;
    const int intervalMs = parameters.value(QStringLiteral("recurrentInterval")).toInt(&ok);
    return ok && intervalMs >= 1 && intervalMs <= longestIntervalMs ? intervalMs : -1;
}

void insertAll(ParameterMap& into, const ParameterMap& from)
{
    for (auto it = from.cbegin(); it != from.cend(); ++it) {
        into.insert(it.key(), it.value());
    }
}

} // namespace

WorkerEngine::WorkerEngine(DAbstractWorker& worker)
    : m_silence({this, &WorkerEngine::handleSilence}), m_tick({this, &WorkerEngine::handleTick}),
      m_connection({this, &WorkerEngine::handleReadable}), m_worker(worker),
      m_framing(&mbapFraming()), m_cutter(mbapFraming()),
      m_deadline({this, &WorkerEngine::handleTimeout})
{
    connect(&m_connection, &Connection::opened, this, &WorkerEngine::handleOpened);
    connect(&m_connection, &Connection::openFailed, this, &WorkerEngine::handleOpenFailed);
    connect(&m_connection, &Connection::lost, this, &WorkerEngine::handleLost);
    connect(&m_connection, &Connection::retryFailed, this, &WorkerEngine::failWaiting);
}

// --- orders in ---

bool WorkerEngine::startOrder(quint64 id, const QString& function, const ParameterMap& parameters,
                              int timeoutMs, QString& refusal)
{
    if (m_queue.full()) {
        refusal = QStringLiteral("the worker's queue is full (%1 orders); wait for answers before "
                                 "giving more")
                      .arg(WorkerQueue::capacity);
        return false;
    }
    auto order = std::make_shared<WorkerOrder>();
    order->id = id;
    order->parameters = parameters;
    order->timeoutMs = timeoutMs > 0 ? timeoutMs : defaultLimitMs;
    if (!fillOrder(*order, function, refusal)) {
        return false;
    }
    m_queue.add(order, order->recurrent() ? steadyNowMs() : 0);
    pump();
    return true;
}

bool WorkerEngine::fillOrder(WorkerOrder& order, const QString& function, QString& refusal)
{
    const bool isLast = !m_lastFunction.call.empty() && function == m_lastFunctionName;
    if (!isLast && !chooseFunction(function)) {
        refusal = QStringLiteral("the worker has no function '%1'").arg(function);
        return false;
    }
    order.function = m_lastFunction.call;
    order.endsConnection = m_lastFunction.endsConnection;
    order.needsConnection = m_lastFunction.needsConnection;
    order.intervalMs = intervalOf(order.parameters);
    if (order.intervalMs < 0) {
        refusal = QStringLiteral("parameter 'recurrentInterval': '%1' is not a number of "
                                 "milliseconds, 1 to %2")
                      .arg(order.parameters.value(QStringLiteral("recurrentInterval")).toString(),
                           QString::number(longestIntervalMs));
        return false;
    }
    return true;
}

bool WorkerEngine::chooseFunction(const QString& name)
{
    const auto it = m_functions.constFind(name);
    if (it == m_functions.constEnd()) {
        return false;
    }
    m_lastFunctionName = name;
    m_lastFunction = *it;
    return true;
}

bool WorkerEngine::stopOrder(quint64 id)
{
    if (id != 0 && id == m_connectId) {
        const Hold hold(this);
        m_connectId = 0;
        m_connection.release();
        if (!m_connection.isOpen()) {
            failWaiting(QStringLiteral("the connection was closed"));
        }
        return true;
    }
    const bool waiting = m_queue.remove(id) != nullptr;
    if (m_current && m_current->id == id) {
        // Its request is out: it stays in flight until its reply or its time limit, so that the
        // reply cannot be taken for the next order's.
        m_current->stopped = true;
        return true;
    }
    return waiting;
}

// --- running ---

void WorkerEngine::pump()
{
    if (m_pumping) {
        return;
    }
    const LifeGuard self(m_lifetime);
    m_pumping = true;
    if (nobodyWaitsForReply() && m_queue.endsConnectionNext()) {
        settle(takeCurrent(), true, {}); // with the socket goes every late reply
    }
    m_lastFailed = false;
    while (!m_current && !m_lastFailed) {
        const WorkerOrderPtr order = m_queue.takeNext(!m_connection.isAwaited());
        if (!order) {
            break;
        }
        run(order);
        if (!self) {
            return;
        }
    }
    m_pumping = false;
    if (m_lastFailed) {
        // One failure a turn of the event loop: whoever answers each failure with a new order must
        // not keep the loop from opening the connection again.
        m_lastFailed = false;
        QMetaObject::invokeMethod(this, &WorkerEngine::pump, Qt::QueuedConnection);
    }
    armTick();
}

bool WorkerEngine::nobodyWaitsForReply() const
{
    return m_current && (m_current->stopped || m_current->id == 0);
}

void WorkerEngine::run(const WorkerOrderPtr& order)
{
    m_current = order;
    m_replyExpected = false;
    m_connectBegun = false;
    m_requestHeadSize = 0;
    m_cutter.clear();
    if (order->needsConnection && m_connection.isDown()) {
        settle(takeCurrent(), false,
               failure(Code::NotConnected,
                       QStringLiteral("no connection to %1 (%2); it is being re-opened")
                           .arg(endpointText(), m_connection.trouble()))
                   .toReply());
        return;
    }
    const LifeGuard self(m_lifetime);
    if (order->id != 0) {
        emit m_worker.sigOrderRunning(order->id);
    }
    if (!self) {
        return;
    }
    const qint64 calledUs = steadyNowUs(); // a device on the same machine answers within the write
    ParameterMap result;
    const bool succeeded = order->function(order->id, order->parameters, result);
    afterCall(succeeded, result, calledUs);
}

void WorkerEngine::afterCall(bool succeeded, const ParameterMap& result, qint64 calledUs)
{
    if (m_connectBegun) {
        m_current.reset(); // from here on the order belongs to the connection
        return;
    }
    if (succeeded && m_replyExpected) {
        m_lastRequestUs = calledUs;
        m_deadline.arm(m_lastRequestUs / 1000 + m_current->timeoutMs);
        return;
    }
    const LifeGuard self(m_lifetime);
    if (!succeeded && m_current->needsConnection) {
        m_connection.checkSocket(); // a write may just have found it ended, which settles the order
    }
    if (self && m_current) {
        settle(takeCurrent(), succeeded, succeeded ? result : refusedByFunction(result));
    }
}

WorkerOrderPtr WorkerEngine::takeCurrent()
{
    m_deadline.disarm();
    return std::move(m_current);
}

void WorkerEngine::settle(const WorkerOrderPtr& order, bool succeeded, const ParameterMap& reply)
{
    m_lastFailed = !succeeded;
    if (order->id == 0) {
        return;
    }
    if (order->recurrent()) {
        m_queue.instanceEnded(*order, steadyNowMs());
    }
    if (order->stopped) {
        return;
    }
    if (order->needsConnection) {
        count(succeeded, reply);
    }
    const Outcome end = succeeded ? Outcome::Done : Outcome::Error;
    tell(order->recurrent() ? Outcome::Answer : end, order->id, reply);
}

void WorkerEngine::tell(Outcome outcome, quint64 id, const ParameterMap& reply)
{
    const LifeGuard self(m_lifetime);
    switch (outcome) {
    case Outcome::Answer:
        emit m_worker.sigOrderAnswer(id, reply);
        break;
    case Outcome::Done:
        emit m_worker.sigOrderDone(id, reply);
        break;
    case Outcome::Error:
        emit m_worker.sigOrderError(id, reply);
        break;
    }
    if (self && !m_outcomeHandler.empty()) {
        m_outcomeHandler(id, outcome, reply);
    }
}

void WorkerEngine::failWaiting(const QString& why)
{
    const Hold hold(this);
    const LifeGuard self(m_lifetime);
    const ParameterMap reply =
        failure(Code::NotConnected,
                QStringLiteral("no connection to %1: %2").arg(endpointText(), why))
            .toReply();
    const std::vector<WorkerOrderPtr> waiting = m_queue.takeWaiting();
    for (const WorkerOrderPtr& order : waiting) {
        settle(order, false, reply);
        if (!self) {
            return;
        }
    }
}

void WorkerEngine::count(bool succeeded, const ParameterMap& reply)
{
    if (succeeded) {
        ++m_statistics.done;
        return;
    }
    switch (OrderFailure::fromReply(reply).code) {
    case Code::Timeout:
        ++m_statistics.timeouts;
        break;
    case Code::DeviceException:
        ++m_statistics.exceptions;
        break;
    case Code::BadReply:
        ++m_statistics.badReplies;
        break;
    case Code::NotConnected:
        ++m_statistics.notConnected;
        break;
    default:
        ++m_statistics.otherFailures;
        break;
    }
}

OrderFailure WorkerEngine::failure(Code code, const QString& text) const
{
    OrderFailure failure;
    failure.code = code;
    failure.text = text;
    if (m_requestHeadSize > 0) {
        failure.unitId = m_framing->requestUnit(m_requestHead.data(), m_requestHeadSize);
    }
    return failure;
}

ParameterMap WorkerEngine::refusedByFunction(const ParameterMap& result) const
{
    if (OrderFailure::fromReply(result)) {
        return result;
    }
    const bool connected = m_worker.isConnected();
    const OrderFailure why = connected
        ? failure(Code::Usage, QStringLiteral("the driver refused the order"))
        : failure(Code::NotConnected, QStringLiteral("there is no connection"));
    ParameterMap reply = result;
    insertAll(reply, why.toReply());
    return reply;
}

void WorkerEngine::handleTick()
{
    m_queue.tick(steadyNowMs());
    pump();
}

void WorkerEngine::armTick()
{
    const qint64 nextMs = m_queue.nextTickMs();
    if (nextMs < 0) {
        m_tick.disarm();
    } else {
        m_tick.arm(nextMs);
    }
}

// --- replies ---

void WorkerEngine::handleReadable()
{
    std::array<char, readChunk> bytes;
    const LifeGuard self(m_lifetime);
    m_reading = true;
    const auto size = static_cast<int>(m_connection.socket()->fetch(bytes.data(), bytes.size()));
    m_reading = false;
    if (size > 0) {
        if (!m_current) {
            handleUnsolicited(size);
        } else if (m_cutter.append(bytes.data(), size)) {
            handleFrame();
        }
    }
    if (self) {
        m_connection.checkSocket();
    }
}

// Nothing was asked. Requests carry no number of their own, so from here on nobody can tell which
// reply answers which request on this connection.
void WorkerEngine::handleUnsolicited(int size)
{
    const Hold hold(this);
    m_statistics.droppedBytes += static_cast<quint64>(size);
    m_connection.reopen(QStringLiteral("%1 bytes came unasked").arg(size));
}

void WorkerEngine::handleFrame()
{
    const Hold hold(this);
    const QByteArray frame = m_cutter.frame();
    const int surplus = m_cutter.surplus();
    m_statistics.droppedBytes += static_cast<quint64>(surplus);
    m_connection.noteReply();
    m_roundTrips.add(steadyNowUs() - m_lastRequestUs);
    bool inStep = surplus == 0 && !m_cutter.implausible()
        && m_framing->answers(m_requestHead.data(), m_requestHeadSize, frame.constData(),
                              frame.size());
    bool succeeded = true;
    ParameterMap reply;
    if (m_current->stopped) {
        m_statistics.droppedBytes += static_cast<quint64>(frame.size());
    } else if (m_current->id != 0) { // of the keep-alive any reply at all is life
        succeeded = judge(frame, reply);
        inStep = inStep && (succeeded || OrderFailure::fromReply(reply).code != Code::BadReply);
    }
    const WorkerOrderPtr order = takeCurrent();
    if (!inStep) {
        m_connection.reopen(QStringLiteral("a reply did not fit its request"));
    }
    settle(order, succeeded, reply);
}

bool WorkerEngine::judge(const QByteArray& frame, ParameterMap& reply)
{
    reply = m_worker.cbReply(frame);
    if (succeededIn(reply)) {
        return true;
    }
    if (findValue(reply, QStringLiteral("errorCode")) != nullptr) {
        return false; // the worker has told why
    }
    const int exception = m_framing->exceptionCode(frame.constData(), frame.size());
    OrderFailure why =
        failure(Code::BadReply, QStringLiteral("the device's reply does not fit the request"));
    if (exception != 0) {
        const int unitId = why.unitId;
        why = OrderFailure::exception(exception, m_framing->exceptionName(exception));
        why.unitId = unitId;
    }
    insertAll(reply, why.toReply());
    return false;
}

void WorkerEngine::handleTimeout()
{
    if (!m_current) {
        return;
    }
    const Hold hold(this);
    const WorkerOrderPtr order = takeCurrent();
    const QString why = QStringLiteral("no answer within %1 ms").arg(order->timeoutMs);
    const ParameterMap reply = failure(Code::Timeout, why).toReply();
    const LifeGuard self(m_lifetime);
    if (order->id == 0) {
        m_connection.loseIt(QStringLiteral("the keep-alive got ") + why);
    } else {
        m_connection.reopen(why); // its reply may still come, and would look like the next one's
    }
    if (self) {
        settle(order, false, reply);
    }
}

void WorkerEngine::watchBytes(bool outgoing, const char* data, int size)
{
    if (outgoing) {
        m_requestHeadSize = std::min(size, ReplyFraming::requestHeadSize);
        std::memcpy(m_requestHead.data(), data, static_cast<std::size_t>(m_requestHeadSize));
    } else if (!m_reading) {
        m_statistics.droppedBytes += static_cast<quint64>(size); // the worker's own drain
    }
    if (m_tracer) {
        m_tracer(outgoing, QByteArray(data, size));
    }
}

// --- set-up ---

void WorkerEngine::declareFunction(const QString& name, const WorkerFunction& function)
{
    const bool connects = name == QLatin1String("connect");
    const bool disconnects = name == QLatin1String("disconnect");
    m_functions.insert(name, {function, !connects && !disconnects, disconnects});
    m_lastFunction = {};
}

void WorkerEngine::setKeepAlive(const QString& name, const ParameterMap& parameters, int intervalMs)
{
    m_defaultKeepAlive = {name, parameters, intervalMs};
    m_keepAlive = m_defaultKeepAlive;
}

void WorkerEngine::setFraming(const ReplyFraming& framing)
{
    m_framing = &framing;
    m_cutter.setFraming(framing);
}

ParameterMap WorkerEngine::currentParameters() const
{
    return m_current ? m_current->parameters : ParameterMap();
}

WorkerStatistics WorkerEngine::statistics() const
{
    WorkerStatistics statistics = m_statistics;
    statistics.ticksSkipped = m_queue.ticksSkipped();
    statistics.roundTripLeastUs = m_roundTrips.leastUs();
    statistics.roundTripMeanUs = m_roundTrips.meanUs();
    statistics.roundTripP99Us = m_roundTrips.quantileUs(99);
    statistics.roundTripMostUs = m_roundTrips.mostUs();
    return statistics;
}

QString WorkerEngine::endpointText() const
{
    return QStringLiteral("%1:%2").arg(m_connection.endpoint().host,
                                       QString::number(m_connection.endpoint().port));
}
