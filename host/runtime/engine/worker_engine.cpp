#include <runtime/engine/worker_engine.h>

#include <runtime/engine/map_lookup.h>

#include <algorithm>
#include <utility>

namespace {

using Code = OrderFailure::Code;

constexpr int longestIntervalMs = 24 * 60 * 60 * 1000;
constexpr uint largestPort = 0xFFFF;

// "recurrent" and "recurrentInterval" of an instruction; 0 for one that runs once, -1 for an
// interval that is none.
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

void countFailure(Code code, WorkerStatistics& statistics)
{
    switch (code) {
    case Code::Timeout:
        ++statistics.timeouts;
        break;
    case Code::DeviceException:
        ++statistics.exceptions;
        break;
    case Code::BadReply:
        ++statistics.badReplies;
        break;
    case Code::NotConnected:
        ++statistics.notConnected;
        break;
    default:
        ++statistics.otherFailures;
        break;
    }
}

} // namespace

// --- set-up ---

int WorkerEngine::declareFunction(const QString& name)
{
    const int known = numberOf(name);
    if (known >= 0) {
        return known;
    }
    const auto number = static_cast<int>(m_functions.size());
    m_functions.push_back(name);
    if (name == QLatin1String("connect")) {
        m_connect = number;
    } else if (name == QLatin1String("disconnect")) {
        m_disconnect = number;
    }
    return number;
}

// A worker has some ten functions: a walk over them costs no more than to hash the name.
int WorkerEngine::numberOf(const QString& function) const
{
    for (std::size_t i = 0; i < m_functions.size(); ++i) {
        if (isSameText(m_functions[i], function)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void WorkerEngine::setKeepAlive(const QString& function, const ParameterMap& parameters,
                                int intervalMs)
{
    m_keepAlive.setDefault(function, parameters, intervalMs);
}

void WorkerEngine::setLinkOptions(const LinkOptions& options)
{
    m_link.setKeepTrying(options.keepTrying);
    m_exchange.setUnit(options.unit);
    m_tellsRepliesApart = options.transactionIds;
    m_turn.setShared(options.share);
    m_serial = options.serial.section(QLatin1Char(','), 0, 0);
}

// --- what users ask for ---

bool WorkerEngine::add(quint64 id, const QString& function, const ParameterMap& parameters,
                       int limitMs, qint64 nowUs, QString& refusal)
{
    const int number = numberOf(function);
    const int intervalMs = intervalOf(parameters);
    if (m_queue.full()) {
        refusal = QStringLiteral("the worker's queue is full (%1 orders); wait for answers before "
                                 "giving more")
                      .arg(InstructionQueue::capacity);
    } else if (number < 0) {
        refusal = QStringLiteral("the worker has no function '%1'").arg(function);
    } else if (intervalMs < 0) {
        refusal = QStringLiteral("parameter 'recurrentInterval': '%1' is not a number of "
                                 "milliseconds, 1 to %2")
                      .arg(parameters.value(QStringLiteral("recurrentInterval")).toString(),
                           QString::number(longestIntervalMs));
    }
    if (!refusal.isEmpty()) {
        return false;
    }
    const auto instruction = std::make_shared<WorkerInstruction>();
    instruction->id = id;
    instruction->function = number;
    instruction->parameters = parameters;
    instruction->limitMs = limitMs > 0 ? limitMs : LinkKeeper::defaultLimitMs;
    instruction->intervalMs = intervalMs;
    instruction->needsLink = number != m_connect && number != m_disconnect;
    instruction->endsLink = number == m_disconnect;
    m_queue.add(instruction, nowUs);
    return true;
}

bool WorkerEngine::stop(quint64 id, qint64 nowUs)
{
    if (id != 0 && id == m_connectId) {
        m_connectId = 0;
        m_actions.dropOutcomes(id);
        const bool wasTold = m_link.isReported();
        if (m_link.release()) {
            closeLink();
            if (wasTold) { // it was being replaced, of which nobody hears
                m_actions.add(Kind::TellState);
            }
            failWaiting(QStringLiteral("the connection was closed"), nowUs);
        }
        return true;
    }
    const bool told = m_actions.dropOutcomes(id);
    const bool waited = m_queue.remove(id);
    const bool runs = m_current && m_current->id == id;
    if (runs) {
        // When its request is out, it stays in flight until its reply or its time limit, so that
        // the reply cannot be taken for the next one's.
        m_current->stopped = true;
    }
    return runs || waited || told;
}

// --- running ---

bool WorkerEngine::next(WorkerAction& action, qint64 nowUs)
{
    if (m_actions.empty()) {
        choose(nowUs);
    }
    if (m_actions.empty()) {
        return false;
    }
    action = m_actions.pop();
    if (action.kind == Kind::OpenLink && !m_link.isAttempting()) { // stopped meanwhile
        action.kind = Kind::Nothing;
    }
    return true;
}

void WorkerEngine::choose(qint64 nowUs)
{
    const bool nobodyWaits =
        m_phase == Phase::InFlight && (m_current->stopped || m_current->id == 0);
    if (nobodyWaits && m_queue.endsLinkNext()) {
        settle(takeCurrent(), {}, {}, nowUs); // with the link goes every late reply, and the turn
    }
    // One failure a turn of the loop: whoever answers each failure with a new order must not keep
    // the link from being opened again.
    if (m_phase != Phase::Idle || m_failedAtOnce) {
        return;
    }
    if (m_turn.isShared() && !mayRunNext(nowUs)) {
        return;
    }
    WorkerInstructionPtr instruction =
        m_link.isAwaited() ? m_queue.popNextWithoutLink() : m_queue.popNext();
    if (instruction) {
        makeCurrent(std::move(instruction), nowUs);
    } else if (m_turn.isHeld()) {
        runKeepAlive(nowUs);
    }
}

void WorkerEngine::makeCurrent(WorkerInstructionPtr instruction, qint64 nowUs)
{
    m_current = std::move(instruction);
    m_phase = Phase::Chosen;
    if (m_current->needsLink && m_link.isDown()) {
        const QString text = QStringLiteral("no connection to %1 (%2); it is being %3");
        failAtOnce(text.arg(m_link.endpoint().text(), m_link.trouble(),
                            QLatin1String(m_link.wasOpen() ? "re-opened" : "tried again")),
                   nowUs);
    } else if (m_current->needsLink && m_link.isOpen() && m_turn.isPaused(nowUs)) {
        const QString text = QStringLiteral("%1 has not answered %2 requests in a row; it is asked "
                                            "again in %3 ms");
        failAtOnce(text.arg(unitText(), QString::number(m_turn.silences()),
                            QString::number((m_turn.pausedUntilUs() - nowUs) / 1000 + 1)),
                   nowUs);
    } else {
        m_actions.add(Kind::CallFunction, m_current->id);
    }
}

// The current instruction, which has not been called.
void WorkerEngine::failAtOnce(const QString& text, qint64 nowUs)
{
    m_exchange.begin(nowUs);
    m_failedAtOnce = true;
    const OrderFailure why = m_exchange.failure(Code::NotConnected, text);
    settle(release(), why, why.toReply(), nowUs);
}

// --- a link that others use as well ---

// Which instruction runs is chosen once the turn is there, so that those that run once go first.
bool WorkerEngine::mayRunNext(qint64 nowUs)
{
    const bool isNeeded = m_queue.needsLinkNext() || m_queue.endsLinkNext();
    if (m_turn.isHeld() && !isNeeded && !isKeepAliveDue(nowUs)) {
        giveTurnBack();
    }
    if (!m_link.isOpen() || m_turn.isHeld() || m_turn.isPaused(nowUs) || !m_queue.needsLinkNext()) {
        return true;
    }
    askTurn();
    return false;
}

void WorkerEngine::askTurn()
{
    if (!m_turn.isAsked()) {
        m_turn.ask();
        m_actions.add(Kind::AskTurn);
    }
}

bool WorkerEngine::lacksTurn() const
{
    return m_turn.isShared() && m_link.isOpen() && !m_turn.isHeld();
}

void WorkerEngine::giveTurnBack()
{
    if (m_turn.isHeld()) {
        m_turn.giveBack();
        m_actions.add(Kind::GiveTurn, 0, m_exchange.isOver());
    }
}

void WorkerEngine::turnCame(const LinkLife& life, qint64 nowUs)
{
    m_turn.come();
    if (m_phase == Phase::Idle) {
        m_exchange.begin(nowUs); // nothing is out
    }
    m_link.setLife(life);
    m_keepAlive.noteTraffic(std::max(life.trafficUs, m_keepAlive.lastTrafficUs()));
}

LinkLife WorkerEngine::linkLife() const
{
    return {m_link.hasAnswered(), m_link.silences(), m_keepAlive.lastTrafficUs()};
}

void WorkerEngine::linkReplaced(const QString& why, qint64 nowUs)
{
    if (!m_link.isOpen()) {
        return;
    }
    if (m_link.replacedByOther(nowUs)) {
        openLink(false);
    } else {
        linkEnded(why, nowUs);
    }
}

void WorkerEngine::noteUnitSilent(qint64 nowUs)
{
    if (m_turn.noteSilence(nowUs)) {
        const QString text = QStringLiteral("%1 has not answered %2 requests in a row; it is asked "
                                            "less often, so that it does not hold the others up");
        m_actions.log(text.arg(unitText(), QString::number(m_turn.silences())), true);
    }
}

void WorkerEngine::noteUnitAnswers()
{
    if (m_turn.isShared() && m_turn.noteReply()) {
        m_actions.log(QStringLiteral("%1 answers again").arg(unitText()), false);
    }
}

QString WorkerEngine::unitText() const
{
    const QString text = m_exchange.unit() >= 0
        ? QStringLiteral("unit %1 at ").arg(m_exchange.unit())
        : QStringLiteral("the device at ");
    return text + m_link.endpoint().text();
}

// --- running ---

void WorkerEngine::runKeepAlive(qint64 nowUs)
{
    const int function = numberOf(m_keepAlive.function());
    if (function < 0) {
        m_keepAlive.giveUp();
        return;
    }
    const auto instruction = std::make_shared<WorkerInstruction>();
    instruction->function = function;
    instruction->parameters = m_keepAlive.parameters();
    instruction->limitMs = m_link.endpoint().limitMs;
    makeCurrent(instruction, nowUs);
}

WorkerInstructionPtr WorkerEngine::beginCall(qint64 nowUs)
{
    if (m_phase != Phase::Chosen) {
        return nullptr;
    }
    m_exchange.begin(nowUs);
    if (m_current->stopped) {
        settle(release(), {}, {}, nowUs);
        return nullptr;
    }
    if (m_current->needsLink
        && (m_link.isAwaited() || lacksTurn())) { // gone while its start was told
        const WorkerInstructionPtr instruction = release();
        if (instruction->id != 0) {
            m_queue.putBack(instruction);
        }
        return nullptr;
    }
    m_connectBegun = false;
    m_phase = Phase::Calling;
    return m_current;
}

void WorkerEngine::drained(int size)
{
    m_statistics.droppedBytes += static_cast<quint64>(size);
    m_exchange.drained(size);
}

void WorkerEngine::functionReturned(bool succeeded, const ParameterMap& result, qint64 nowUs)
{
    if (m_connectBegun) {
        release(); // from here on the connect belongs to the link
        return;
    }
    const bool answered = succeeded && !m_exchange.replyExpected(); // it needed no reply
    if (!answered && neverLeft(nowUs)) {
        return;
    }
    if (succeeded && m_exchange.replyExpected()) {
        m_phase = Phase::InFlight;
        m_exchange.waitFor(m_current->limitMs);
        m_keepAlive.noteTraffic(nowUs);
        if (m_exchange.isWhole()) {
            frameCame(nowUs);
        }
        return;
    }
    if (m_current->id == 0) {
        m_keepAlive.giveUp();
        m_actions.log(QStringLiteral("%1: the keep-alive '%2' sends nothing; the connection is not "
                                     "watched")
                          .arg(m_link.endpoint().text(), m_keepAlive.function()),
                      true);
    }
    m_failedAtOnce = !succeeded;
    const OrderFailure why = succeeded ? OrderFailure() : refused(result);
    ParameterMap reply = result;
    if (why) {
        insertAll(reply, why.toReply());
    }
    settle(release(), why, reply, nowUs);
    if (std::exchange(m_endedInCall, false)) {
        declareLost(m_endedWhy, nowUs);
    }
}

// Deals with a call that found the link ended, or bytes waiting on it that nobody asked for: then
// nothing may leave on it. What has not left is called again on the new link.
bool WorkerEngine::neverLeft(qint64 nowUs)
{
    const int stale = m_exchange.drainedBytes();
    if (!m_endedInCall && (stale == 0 || m_exchange.hasLeft())) {
        return false;
    }
    const WorkerInstructionPtr instruction = release();
    const QString why = m_endedWhy;
    if (m_exchange.hasLeft()) {
        const QString text = QStringLiteral("the connection to %1 was lost (%2)");
        const OrderFailure lost =
            m_exchange.failure(Code::NotConnected, text.arg(m_link.endpoint().text(), why));
        settle(instruction, lost, lost.toReply(), nowUs);
    } else if (instruction->id != 0 && !instruction->stopped) {
        m_queue.putBack(instruction);
    }
    if (std::exchange(m_endedInCall, false)) {
        declareLost(why, nowUs);
    } else {
        replaceLink(QStringLiteral("%1 bytes came unasked").arg(stale), nowUs);
    }
    return true;
}

OrderFailure WorkerEngine::refused(const ParameterMap& result) const
{
    OrderFailure own = OrderFailure::fromReply(result);
    if (own) {
        return own;
    }
    return m_link.isOpen()
        ? m_exchange.failure(Code::Usage, QStringLiteral("the driver refused the order"))
        : m_exchange.failure(Code::NotConnected, QStringLiteral("there is no connection"));
}

// --- replies ---

void WorkerEngine::received(const char* data, int size, qint64 nowUs)
{
    const bool belongs = m_phase == Phase::InFlight || m_phase == Phase::Calling;
    if (!belongs) {
        unasked(size, nowUs);
    } else if (m_exchange.append(data, size) && m_phase == Phase::InFlight) {
        frameCame(nowUs);
    }
}

void WorkerEngine::dropped(int size, int replies)
{
    m_statistics.droppedBytes += static_cast<quint64>(size);
    m_statistics.droppedReplies += static_cast<quint64>(replies);
    m_link.noteLateReply();
}

// Requests carry no number of their own, so from here on nobody can tell which reply answers which
// request on this link.
void WorkerEngine::unasked(int size, qint64 nowUs)
{
    m_statistics.droppedBytes += static_cast<quint64>(size);
    replaceLink(QStringLiteral("%1 bytes came unasked").arg(size), nowUs);
}

void WorkerEngine::frameCame(qint64 nowUs)
{
    if (m_exchange.surplus() > 0) {
        m_statistics.droppedBytes += static_cast<quint64>(m_exchange.surplus());
    }
    m_exchange.end();
    m_link.noteReply();
    noteUnitAnswers();
    m_keepAlive.noteTraffic(nowUs);
    m_roundTrips.add(nowUs - m_exchange.calledUs());
    if (!m_current->stopped && m_current->id != 0) {
        m_phase = Phase::Judging;
        m_actions.add(Kind::JudgeReply);
        return;
    }
    // Nobody waits for it; of the keep-alive any reply at all is life.
    if (m_current->stopped) {
        m_statistics.droppedBytes += static_cast<quint64>(m_exchange.frame().size());
        ++m_statistics.droppedReplies;
    }
    const WorkerInstructionPtr instruction = release();
    if (!m_exchange.fits()) {
        replaceLink(QStringLiteral("a reply did not fit its request"), nowUs);
    }
    settle(instruction, {}, {}, nowUs);
}

void WorkerEngine::judged(ParameterMap judgement, qint64 nowUs)
{
    const OrderFailure failure = m_exchange.verdict(judgement);
    if (failure) {
        if (judgement.value(QStringLiteral("doneOk"), true).toBool()) {
            judgement.clear(); // no value of a reply that is none
        }
        insertAll(judgement, failure.toReply());
    }
    const WorkerInstructionPtr instruction = release();
    if (std::exchange(m_endedInCall, false)) {
        declareLost(m_endedWhy, nowUs);
    } else if (failure.code == Code::BadReply) {
        replaceLink(QStringLiteral("a reply did not fit its request"), nowUs);
    }
    settle(instruction, failure, std::move(judgement), nowUs);
}

void WorkerEngine::timePassed(qint64 nowUs)
{
    m_failedAtOnce = false;
    if (nowUs >= m_exchange.limitUs() || m_link.isOverdue(nowUs)) {
        m_actions.add(Kind::Look);
    }
    if (m_link.retry(nowUs)) {
        openLink(false);
    }
    m_queue.tick(nowUs);
    // Never in front of an order or behind one.
    if (m_phase == Phase::Idle && m_actions.empty() && m_link.isOpen() && isKeepAliveDue(nowUs)) {
        choose(nowUs);
        if (m_phase == Phase::Idle && lacksTurn()) {
            askTurn();
        } else if (m_phase == Phase::Idle) {
            runKeepAlive(nowUs);
        }
    }
}

bool WorkerEngine::isKeepAliveDue(qint64 nowUs) const
{
    return nowUs >= m_keepAlive.dueUs() && !m_turn.isPaused(nowUs);
}

void WorkerEngine::looked(qint64 nowUs, const QString& missing)
{
    if (nowUs >= m_exchange.limitUs()) {
        timedOut(nowUs);
    }
    if (m_link.isOverdue(nowUs)) {
        const QString text = QStringLiteral("no answer within %1 ms");
        linkFailed(text.arg(m_link.endpoint().limitMs) + missing, nowUs);
    }
}

void WorkerEngine::timedOut(qint64 nowUs)
{
    const WorkerInstructionPtr instruction = release();
    const QString text = QStringLiteral("no answer within %1 ms").arg(instruction->limitMs);
    // On a link of several, a device that has answered there is not gone with the one behind it.
    if (instruction->id == 0 && !(m_turn.isShared() && m_link.hasAnswered())) {
        declareLost(QStringLiteral("the keep-alive got ") + text, nowUs, Loss::ByKeepAlive);
    } else if (!m_tellsRepliesApart || m_link.noteSilence()) {
        replaceLink(text, nowUs); // its reply may still come, and would look like the next one's
    }
    noteUnitSilent(nowUs);
    const OrderFailure why = m_exchange.failure(Code::Timeout, text);
    settle(instruction, why, why.toReply(), nowUs);
}

// --- ends ---

WorkerInstructionPtr WorkerEngine::release()
{
    giveTurnBack();
    return takeCurrent();
}

WorkerInstructionPtr WorkerEngine::takeCurrent()
{
    m_exchange.end();
    m_phase = Phase::Idle;
    return std::move(m_current);
}

void WorkerEngine::settle(const WorkerInstructionPtr& instruction, const OrderFailure& failure,
                          ParameterMap reply, qint64 nowUs)
{
    if (instruction->id == 0) {
        return;
    }
    if (instruction->recurrent()) {
        m_queue.runEnded(*instruction, nowUs);
    }
    if (instruction->stopped) {
        return;
    }
    if (failure && instruction->needsLink) {
        countFailure(failure.code, m_statistics);
    } else if (instruction->needsLink) {
        ++m_statistics.done;
    }
    const Outcome end = failure ? Outcome::Error : Outcome::Done;
    m_actions.tell(instruction->recurrent() ? Outcome::Answer : end, instruction->id,
                   std::move(reply), failure);
}

void WorkerEngine::failWaiting(const QString& why, qint64 nowUs)
{
    const OrderFailure failure = OrderFailure::of(
        Code::NotConnected,
        QStringLiteral("no connection to %1: %2").arg(m_link.endpoint().text(), why));
    for (const WorkerInstructionPtr& instruction : m_queue.popWaiting()) {
        settle(instruction, failure, failure.toReply(), nowUs);
    }
}

// --- the link ---

void WorkerEngine::openLink(bool anew)
{
    m_turn.leave();
    m_actions.add(Kind::OpenLink, 0, anew);
}

void WorkerEngine::closeLink(bool isSpoiled)
{
    m_turn.leave();
    m_actions.add(Kind::CloseLink, 0, isSpoiled);
}

bool WorkerEngine::beginConnect(const ParameterMap& parameters, ParameterMap& result, qint64 nowUs)
{
    QString refusal = connectRefusal(parameters);
    if (refusal.isEmpty()) {
        refusal = m_keepAlive.choose(parameters);
    }
    if (refusal.isEmpty() && !m_keepAlive.function().isEmpty()
        && numberOf(m_keepAlive.function()) < 0) {
        refusal = QStringLiteral("parameter 'keepAliveFunction': the worker has no function '%1'")
                      .arg(m_keepAlive.function());
    }
    if (!refusal.isEmpty()) {
        result = OrderFailure::usage(refusal).toReply();
        result.insert(QStringLiteral("connected"), m_link.isOpen());
        return false;
    }
    m_connectId = m_current->id;
    m_connectBegun = true;
    m_turn.forgetSilence();
    m_opensFirst = true;
    if (m_link.isReported()) { // that of a connect which was stopped, and is replaced by this one
        m_actions.add(Kind::TellState);
    }
    m_link.begin(endpointOf(parameters), nowUs);
    openLink(false);
    return true;
}

LinkKeeper::Endpoint WorkerEngine::endpointOf(const ParameterMap& parameters) const
{
    if (!m_serial.isEmpty()) {
        return {m_serial, 0, m_current->limitMs};
    }
    return {parameters.value(QStringLiteral("host")).toString().trimmed(),
            static_cast<quint16>(parameters.value(QStringLiteral("port")).toUInt()),
            m_current->limitMs};
}

QString WorkerEngine::connectRefusal(const ParameterMap& parameters) const
{
    if (m_phase != Phase::Calling) {
        return QStringLiteral("a connect runs as an order");
    }
    if (m_connectId != 0) {
        return QStringLiteral("already connected to %1; disconnect first")
            .arg(m_link.endpoint().text());
    }
    if (!m_serial.isEmpty()) {
        return {};
    }
    bool portIsNumber = false;
    const uint port = parameters.value(QStringLiteral("port")).toUInt(&portIsNumber);
    if (parameters.value(QStringLiteral("host")).toString().trimmed().isEmpty()) {
        return QStringLiteral("parameter 'host' is empty; name the device's address");
    }
    if (!portIsNumber || port == 0 || port > largestPort) {
        return QStringLiteral("parameter 'port': '%1' is not a number 1 to %2")
            .arg(parameters.value(QStringLiteral("port")).toString(), QString::number(largestPort));
    }
    return {};
}

void WorkerEngine::disconnect(ParameterMap& result)
{
    const bool wasTold = m_link.isReported();
    m_link.end();
    result.insert(QStringLiteral("disconnected"), true);
    closeLink();
    if (wasTold) {
        m_actions.add(Kind::TellState);
    }
    if (m_connectId != 0) { // disconnected without being stopped: that is its end
        m_actions.tell(Outcome::Done, std::exchange(m_connectId, 0), result, {});
    }
}

void WorkerEngine::linkOpened(qint64 nowUs)
{
    m_statistics.reconnects += std::exchange(m_opensFirst, false) ? 0 : 1;
    m_keepAlive.linkOpened(nowUs);
    if (m_link.opened()) {
        tellState(true, {});
    }
}

void WorkerEngine::linkFailed(const QString& why, qint64 nowUs)
{
    const LinkKeeper::Failed failed = m_link.attemptFailed(why, nowUs);
    closeLink();
    if (failed == LinkKeeper::Failed::First && m_connectId != 0) {
        const OrderFailure failure = OrderFailure::of(
            Code::NotConnected,
            QStringLiteral("cannot connect to %1: %2").arg(m_link.endpoint().text(), why));
        ParameterMap reply = failure.toReply();
        reply.insert(QStringLiteral("connected"), false);
        m_actions.tell(Outcome::Error, std::exchange(m_connectId, 0), reply, failure);
    }
    if (failed == LinkKeeper::Failed::Trying) {
        tellConnectDown(why);
    }
    if (failed == LinkKeeper::Failed::Lost) {
        m_actions.log(QStringLiteral("%1 disconnected: %2").arg(m_link.endpoint().text(), why),
                      false);
        tellState(false, why);
    }
    failWaiting(why, nowUs);
}

void WorkerEngine::linkEnded(const QString& why, qint64 nowUs)
{
    if (!m_link.isOpen()) {
        return;
    }
    if (m_phase == Phase::Calling || m_phase == Phase::Judging) {
        m_endedInCall = true;
        m_endedWhy = why;
    } else {
        declareLost(why, nowUs);
    }
}

void WorkerEngine::replaceLink(const QString& why, qint64 nowUs)
{
    if (!m_link.isOpen()) {
        return;
    }
    if (!m_link.replace(nowUs)) {
        declareLost(why, nowUs, Loss::Spoiled);
        return;
    }
    openLink(true);
}

void WorkerEngine::declareLost(const QString& why, qint64 nowUs, Loss loss)
{
    if (!m_link.isOpen()) { // replaced meanwhile
        return;
    }
    m_link.lose(why, nowUs);
    closeLink(loss == Loss::Spoiled);
    m_actions.log(QStringLiteral("%1 disconnected: %2").arg(m_link.endpoint().text(), why), false);
    if (m_phase == Phase::InFlight) {
        const QString text = QStringLiteral("the connection to %1 was lost (%2)");
        const OrderFailure lost =
            m_exchange.failure(Code::NotConnected, text.arg(m_link.endpoint().text(), why));
        settle(release(), lost, lost.toReply(), nowUs);
    }
    tellState(false, why, loss == Loss::ByKeepAlive);
}

void WorkerEngine::tellState(bool open, const QString& why, bool byKeepAlive)
{
    m_actions.add(Kind::TellState, 0, open);
    if (!open) {
        tellConnectDown(why, byKeepAlive);
    } else if (m_connectId != 0) {
        m_actions.tell(Outcome::Answer, m_connectId, {{QStringLiteral("connected"), true}}, {});
    }
}

void WorkerEngine::tellConnectDown(const QString& why, bool byKeepAlive)
{
    if (m_connectId == 0) {
        return;
    }
    OrderFailure failure = OrderFailure::of(Code::NotConnected, why);
    failure.byKeepAlive = byKeepAlive;
    ParameterMap reply = failure.toReply();
    reply.remove(QStringLiteral("doneOk")); // a state, not a rejected reply
    reply.insert(QStringLiteral("disconnected"), true);
    m_actions.tell(Outcome::Answer, m_connectId, reply, failure);
}

// --- what can be seen ---

qint64 WorkerEngine::wakeAtUs() const
{
    if (m_failedAtOnce) {
        return 0;
    }
    qint64 wakeUs = std::min({m_exchange.limitUs(), m_link.dueUs(), m_queue.nextTickUs()});
    if (m_phase == Phase::Idle && m_link.isOpen() && !m_turn.isAsked()) {
        wakeUs = std::min(wakeUs, std::max(m_keepAlive.dueUs(), m_turn.pausedUntilUs()));
    }
    return wakeUs;
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
