#include <runtime/shell/worker_shell.h>

#include <runtime/shell/foreign_calls.h>

#include <QLoggingCategory>
#include <QThread>

#include <sys/random.h>

#include <array>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(logConnection, "host.connection", QtInfoMsg)

constexpr int readSize = 4096; // more than any frame, so that one read takes what is there

// Other workers and other processes get another one, which is all that the delays need.
unsigned systemSeed()
{
    unsigned seed = 0;
    const ssize_t size = ::getrandom(&seed, sizeof(seed), GRND_NONBLOCK);
    return size == sizeof(seed) ? seed : static_cast<unsigned>(steadyNowUs());
}

} // namespace

WorkerShell::WorkerShell(DAbstractWorker& worker)
    : m_worker(&worker), m_due({this, &WorkerShell::handleDue}),
      m_leftInCall({this, &WorkerShell::handleSleep}), m_step({this, &WorkerShell::handleStep}),
      m_link({{this, &WorkerShell::handleOpened},
              {this, &WorkerShell::handleFailed},
              {this, &WorkerShell::handleReadable}},
             watch()),
      m_engine(systemSeed()) // so that many do not come back at once
{
}

LinkSocket::Watch WorkerShell::watch()
{
    return {{this, &WorkerShell::handleDrained},
            {this, &WorkerShell::handleDropped},
            {this, m_spin ? &WorkerShell::handleWrittenSpinning : &WorkerShell::handleWritten},
            {this, &WorkerShell::trace}};
}

void WorkerShell::leave()
{
    m_worker = nullptr;
    m_link.close();
    m_place.reset();
    m_due.set(Deadline::never);
    m_step.unset();
    release();
}

void WorkerShell::declareFunction(const QString& name, const WorkerFunction& function)
{
    const auto number = static_cast<std::size_t>(m_engine.declareFunction(name));
    m_functions.resize(std::max(m_functions.size(), number + 1));
    m_functions[number] = function;
}

// --- what users ask for ---

bool WorkerShell::start(quint64 id, const QString& function, const ParameterMap& parameters,
                        int timeoutMs, QString& refusal)
{
    m_nowUs = steadyNowUs();
    if (!m_engine.add(id, function, parameters, timeoutMs, m_nowUs, refusal)) {
        return false;
    }
    performFromOutside();
    return true;
}

bool WorkerShell::stop(quint64 id)
{
    m_nowUs = steadyNowUs();
    const bool stopped = m_engine.stop(id, m_nowUs);
    performFromOutside();
    return stopped;
}

bool WorkerShell::setLinkOptions(const LinkOptions& options, QString& refusal)
{
    if (!m_engine.isUnlinked()) {
        refusal = QStringLiteral("the connection is in use; disconnect first");
        return false;
    }
    refusal = Translation::refusal(options, m_engine.framing());
    auto tls = options.tls ? std::make_unique<TlsSettings>() : nullptr;
    if (refusal.isEmpty() && tls) {
        refusal = tls->load(options);
    }
    SerialSettings serial;
    if (refusal.isEmpty() && !options.serial.isEmpty()) {
        refusal = serial.load(options.serial);
    }
    if (!refusal.isEmpty()) {
        return false;
    }
    m_engine.setLinkOptions(options);
    setUpLink(options, std::move(tls), options.serial.isEmpty() ? nullptr : &serial);
    return true;
}

void WorkerShell::setUpLink(const LinkOptions& options, std::unique_ptr<TlsSettings> tls,
                            const SerialSettings* serial)
{
    if (m_place && m_worker->m_socket) {
        m_worker->m_socket = &m_link.socket();
    }
    m_place.reset();
    m_spin = options.spin ? std::make_unique<Spin>(Spin::Question(this, &WorkerShell::awaitsReply))
                          : nullptr;
    m_link.socket().setWatch(watch());
    if (!options.share) {
        m_link.setTls(std::move(tls));
        m_link.setSerial(serial);
        m_link.socket().setTranslation(Translation::make(options));
        return;
    }
    const LinePlace::Events events{
        {this, &WorkerShell::handleOpened}, {this, &WorkerShell::handleFailed},
        {this, &WorkerShell::handleEnded},  {this, &WorkerShell::handleReplaced},
        {this, &WorkerShell::handleTurn},   {this, &WorkerShell::handleReadable}};
    m_place = std::make_unique<LinePlace>(options, m_engine.framing(), events, watch());
    m_place->setTls(std::move(tls));
    m_place->setSerial(serial);
}

bool WorkerShell::connectLink(const ParameterMap& parameters, ParameterMap& result)
{
    if (!m_engine.beginConnect(parameters, result, steadyNowUs())) {
        return false;
    }
    m_worker->m_connectionSettings = parameters;
    return true;
}

bool WorkerShell::disconnectLink(ParameterMap& result)
{
    m_engine.disconnect(result);
    performFromOutside();
    return true;
}

// --- what the world does ---

void WorkerShell::handleOpened()
{
    m_nowUs = steadyNowUs();
    m_engine.linkOpened(m_nowUs);
    perform();
}

void WorkerShell::handleFailed(const QString& why)
{
    m_nowUs = steadyNowUs();
    m_engine.linkFailed(why, m_nowUs);
    perform();
}

void WorkerShell::handleEnded(const QString& why)
{
    m_nowUs = steadyNowUs();
    m_engine.linkEnded(why, m_nowUs);
    perform();
}

void WorkerShell::handleReplaced(const QString& why)
{
    m_nowUs = steadyNowUs();
    m_engine.linkReplaced(why, m_nowUs);
    perform();
}

void WorkerShell::handleTurn(const LinkLife& life)
{
    m_nowUs = steadyNowUs();
    m_engine.turnCame(life, m_nowUs);
    perform();
}

// Null while it is another one's turn to ask.
LinkSocket* WorkerShell::socketToUse()
{
    if (!m_place) {
        return &m_link.socket();
    }
    return m_place->hasTurn() ? m_place->socket() : nullptr;
}

void WorkerShell::handleReadable()
{
    LinkSocket& socket = *socketToUse();
    if (m_engine.awaitsNothing()) {
        socket.endRequest();
    }
    std::array<char, readSize> bytes;
    const auto size = static_cast<int>(socket.receive(bytes.data(), bytes.size()));
    m_nowUs = steadyNowUs();
    if (size > 0) {
        m_engine.received(bytes.data(), size, m_nowUs);
    }
    noteEnd();
    if (m_depth == 0 && !m_place && m_engine.judgesNext() && m_step.isWanted()) {
        m_step.set();
    } else {
        perform();
    }
}

void WorkerShell::handleDue()
{
    m_nowUs = steadyNowUs();
    m_engine.timePassed(m_nowUs);
    perform();
}

void WorkerShell::handleWritten(const char* data, int size) { m_engine.requestLeft(data, size); }

void WorkerShell::handleWrittenSpinning(const char* data, int size)
{
    handleWritten(data, size);
    m_spin->expect();
}

void WorkerShell::handleDrained(int size) { m_engine.drained(size); }

void WorkerShell::handleDropped(int size, int replies) { m_engine.dropped(size, replies); }

// Reading and writing find the end of a link without a word.
void WorkerShell::noteEnd()
{
    const LinkSocket* socket = socketToUse();
    if (socket != nullptr && socket->state() != QAbstractSocket::ConnectedState) {
        m_engine.linkEnded(socket->errorString(), m_nowUs);
    }
}

// --- what the engine decides ---

// Called from foreign code that perform() has called: what it asks for is done once that code has
// returned, unless it runs an event loop, which may take long. Between the steps of a reply it is
// done with the next one.
void WorkerShell::performFromOutside()
{
    if (m_step.isSet()) {
        return;
    }
    if (m_depth == 0 || loopLevel() > m_loopLevel) {
        perform();
    } else {
        m_leftInCall.set();
    }
}

// A call runs an event loop now: what was asked for inside it, what waits behind it and what falls
// due must not wait until it returns.
void WorkerShell::handleSleep()
{
    if (m_depth > 0 && m_worker != nullptr) {
        m_nowUs = steadyNowUs();
        perform();
    }
}

// How many event loops are on the stack of the worker's thread.
int WorkerShell::loopLevel() const
{
    // To find the current thread without the worker costs 40 instructions.
    const QThread* thread = m_worker != nullptr ? m_worker->thread() : nullptr;
    return thread != nullptr ? thread->loopLevel() : 0;
}

void WorkerShell::perform(Extent extent)
{
    const Stay stay(this);
    const int outerLevel = std::exchange(m_loopLevel, loopLevel());
    ++m_depth;
    tellUntold();
    WorkerAction action;
    while (m_worker != nullptr && (m_traces.empty() || showTraces())
           && m_engine.next(action, m_nowUs)) {
        execute(action);
        if (endsStep(extent)) {
            m_step.set();
            break;
        }
    }
    m_loopLevel = outerLevel;
    if (--m_depth == 0) {
        m_leftInCall.unset(); // while it is at hand: before the loop sleeps it comes from far away
    }
    if (m_worker != nullptr && !m_step.isSet()) {
        m_due.set(m_engine.wakeAtUs());
    }
}

// One that a call's event loop makes is not one of several: it goes on to the end.
bool WorkerShell::endsStep(Extent extent)
{
    return extent == Extent::Step && m_depth == 1 && m_worker != nullptr && m_step.othersWait()
        && m_engine.canPause();
}

void WorkerShell::execute(const WorkerAction& action)
{
    using Kind = WorkerAction::Kind;
    switch (action.kind) {
    case Kind::CallFunction:
        callFunction(action.id);
        break;
    case Kind::JudgeReply:
        judgeReply();
        break;
    case Kind::TellOutcome:
        tellOutcome(action);
        break;
    case Kind::TellState:
        callForeign([&] { ForeignCalls::tellState(*m_worker, action.flag); });
        break;
    case Kind::OpenLink:
        openLink(action.flag);
        break;
    case Kind::CloseLink:
        closeLink(action.flag);
        break;
    case Kind::AskTurn:
        askTurn();
        break;
    case Kind::GiveTurn:
        if (m_place) {
            m_place->giveTurn(action.flag, m_engine.linkLife());
        }
        break;
    case Kind::Look:
        m_place ? m_place->look() : m_link.look();
        m_engine.looked(m_nowUs, m_place ? m_place->missing() : m_link.missing());
        break;
    case Kind::Log:
        log(action);
        break;
    case Kind::Nothing:
        break;
    }
}

void WorkerShell::openLink(bool anew)
{
    if (m_place) {
        m_place->open(m_engine.endpoint().host, m_engine.endpoint().port, anew);
        m_worker->m_socket = m_place->socket();
    } else {
        m_worker->m_socket = &m_link.socket();
        m_link.open(m_engine.endpoint().host, m_engine.endpoint().port);
    }
}

void WorkerShell::askTurn()
{
    const LinkLife* life = m_place ? m_place->askTurn() : nullptr;
    if (life != nullptr) {
        m_engine.turnCame(*life, m_nowUs);
    }
}

void WorkerShell::closeLink(bool isSpoiled)
{
    if (m_place) {
        m_worker->m_socket = &m_link.socket(); // the others' may be open
        m_place->close(isSpoiled);
    } else {
        m_link.close();
    }
}

// The one door to code that is not ours. False when the worker has gone in the call: then nothing
// of it may be touched any more.
template <typename Call>
bool WorkerShell::callForeign(const Call& call)
{
    m_leftInCall.set();
    call();
    return m_worker != nullptr;
}

void WorkerShell::callFunction(quint64 id)
{
    const bool isKeepAlive = id == 0;
    if (!isKeepAlive && !callForeign([&] { ForeignCalls::tellRunning(*m_worker, id); })) {
        return;
    }
    const qint64 calledUs = m_nowUs = steadyNowUs();
    const WorkerInstructionPtr instruction = m_engine.beginCall(calledUs);
    if (!instruction) {
        return;
    }
    if (LinkSocket* socket = socketToUse()) {
        socket->beginRequest();
    }
    const WorkerFunction function = m_functions[static_cast<std::size_t>(instruction->function)];
    ParameterMap result;
    bool succeeded = false;
    const bool isThere =
        callForeign([&] { succeeded = ForeignCalls::run(function, *instruction, result); });
    if (isThere) {
        noteEnd();
        m_engine.functionReturned(succeeded, result, calledUs);
    }
}

void WorkerShell::judgeReply()
{
    const QByteArray frame = m_engine.frame();
    ParameterMap judgement;
    if (callForeign([&] { judgement = ForeignCalls::judge(*m_worker, frame); })) {
        m_engine.judged(std::move(judgement), m_nowUs);
    }
}

void WorkerShell::tellOutcome(const WorkerAction& action)
{
    const WorkerNews news = m_engine.takeNews();
    if (action.id == WorkerActions::dropped) {
        return;
    }
    const Untold untold{action.id, action.outcome, news};
    m_untold = &untold;
    callForeign(
        [&] { ForeignCalls::tellOutcome(*m_worker, action.outcome, action.id, news.reply); });
    tellUntold();
}

// The worker's own listeners have heard of it. When one of them runs an event loop, the order hears
// of it before anything else happens, as it must not hear of the next outcome before.
void WorkerShell::tellUntold()
{
    if (m_untold == nullptr) {
        return;
    }
    const Untold* untold = std::exchange(m_untold, nullptr);
    const OutcomeHandler handler = m_outcomeHandler;
    if (m_worker != nullptr && !handler.empty()) {
        callForeign([&] {
            handler(untold->id, untold->outcome, untold->news.reply, untold->news.failure);
        });
    }
}

void WorkerShell::log(const WorkerAction& action)
{
    const WorkerNews news = m_engine.takeNews();
    callForeign([&] { ForeignCalls::log(logConnection(), action.flag, news.text); });
}

void WorkerShell::trace(bool outgoing, const char* data, int size)
{
    if (m_tracer) {
        m_traces.push_back({outgoing, QByteArray(data, size)});
    }
}

// False when the worker has gone.
bool WorkerShell::showTraces()
{
    const DAbstractWorker::FrameTracer tracer = m_tracer;
    bool isThere = true;
    while (isThere && !m_traces.empty()) { // a loop in one call goes on with the next
        const Trace first = std::move(m_traces.front());
        m_traces.erase(m_traces.begin());
        isThere = !tracer
            || callForeign([&] { ForeignCalls::show(tracer, first.outgoing, first.bytes); });
    }
    return isThere;
}
