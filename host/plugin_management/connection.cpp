#include <plugin_management/connection_p.h>

#include <QLoggingCategory>

#include <utility>

namespace {

Q_LOGGING_CATEGORY(logConnection, "host.connection", QtInfoMsg)

constexpr int defaultLimitMs = 5000;

} // namespace

Connection::Connection(const Handler& readable)
    : m_limit({this, &Connection::handleAttemptLimit}), m_retry({this, &Connection::retry}),
      m_readable(readable)
{
}

Connection::~Connection()
{
    dropSocket();
    if (m_inSocketSignal == 0) {
        return; // the sockets go as children
    }
    const auto sockets = findChildren<QAbstractSocket*>();
    for (QAbstractSocket* socket : sockets) {
        socket->setParent(nullptr);
        socket->deleteLater();
    }
}

void Connection::open(const Endpoint& endpoint)
{
    close();
    m_endpoint = endpoint;
    m_wanted = true;
    startAttempt(State::Opening);
}

void Connection::close()
{
    dropSocket();
    m_limit.disarm();
    m_retry.disarm();
    m_backoff.reset();
    m_state = State::Closed;
    m_retries = 0;
    m_wanted = false;
    m_reported = false;
    m_answered = false;
}

void Connection::release()
{
    m_wanted = false;
    if (m_state != State::Open) {
        close();
    }
}

void Connection::reopen(const QString& why)
{
    if (m_state != State::Open) {
        return;
    }
    if (!m_wanted || !m_answered) {
        loseIt(why);
        return;
    }
    qCDebug(logConnection).noquote() << endpointText() << "re-opened:" << why;
    startAttempt(State::Reopening);
}

void Connection::loseIt(const QString& why)
{
    if (m_state != State::Open) {
        return;
    }
    dropSocket();
    m_trouble = why;
    qCInfo(logConnection).noquote() << endpointText() << "disconnected:" << why;
    if (m_wanted) {
        retryLater();
    } else {
        m_state = State::Closed;
    }
    m_reported = false;
    emit lost(why);
}

void Connection::noteReply()
{
    m_answered = true;
    m_retries = 0;
    m_backoff.reset();
}

void Connection::checkSocket()
{
    if (m_state == State::Open && m_socket->state() != QAbstractSocket::ConnectedState) {
        // A write after the read that found the end replaces the error by an unknown one.
        const bool closedByDevice = m_socket->error() == QAbstractSocket::RemoteHostClosedError
            || m_socket->error() == QAbstractSocket::UnknownSocketError;
        loseIt(closedByDevice ? QStringLiteral("the device closed the connection")
                              : m_socket->errorString());
    }
}

bool Connection::isAwaited() const
{
    switch (m_state) {
    case State::Opening:
        return true;
    case State::Waiting:
        return m_retries == 0;
    case State::Reopening:
        return m_retries <= 1;
    default:
        return false;
    }
}

void Connection::startAttempt(State state)
{
    dropSocket();
    m_state = state;
    m_answered = false;
    m_attempt = new QTcpSocket(this);
    connect(m_attempt, &QTcpSocket::connected, this,
            [this] { handle([this] { attemptSucceeded(); }); });
    connect(m_attempt, &QAbstractSocket::errorOccurred, this,
            [this] { handle([this] { attemptFailed(m_attempt->errorString()); }); });
    m_limit.arm(steadyNowMs() + attemptLimitMs());
    m_attempt->connectToHost(m_endpoint.host, m_endpoint.port,
                             QIODevice::ReadWrite | QIODevice::Unbuffered);
}

int Connection::attemptLimitMs() const
{
    return m_endpoint.limitMs > 0 ? m_endpoint.limitMs : defaultLimitMs;
}

void Connection::handleAttemptLimit()
{
    attemptFailed(QStringLiteral("no answer within %1 ms").arg(attemptLimitMs()));
}

void Connection::retry()
{
    ++m_retries;
    startAttempt(State::Reopening);
}

// A socket must outlive its own signals, whatever a slot does: handle() counts them for the
// destructor.
template <typename Action>
void Connection::handle(Action action)
{
    const QPointer<Connection> self(this);
    ++m_inSocketSignal;
    action();
    if (self) {
        --m_inSocketSignal;
    }
}

void Connection::handleReadable(quint32 events)
{
    Q_UNUSED(events)
    handle([this] { m_readable(); });
}

void Connection::attemptSucceeded()
{
    m_limit.disarm();
    m_socket = new WorkerSocket(this);
    if (!m_socket->adopt(*m_attempt, {this, &Connection::handleReadable})) {
        attemptFailed(m_socket->errorString());
        return;
    }
    std::exchange(m_attempt, nullptr)->deleteLater();
    m_state = State::Open;
    const bool report = !m_reported;
    m_reported = true;
    qCDebug(logConnection).noquote() << endpointText() << "connected";
    emit opened(report);
}

void Connection::attemptFailed(const QString& why)
{
    const bool first = m_state == State::Opening;
    dropSocket();
    m_limit.disarm();
    m_trouble = why;
    if (first) {
        close();
        emit openFailed(why);
        return;
    }
    retryLater();
    const QPointer<Connection> self(this);
    if (m_reported) {
        m_reported = false;
        qCInfo(logConnection).noquote() << endpointText() << "disconnected:" << why;
        emit lost(why);
    }
    if (self) {
        emit retryFailed(why);
    }
}

void Connection::retryLater()
{
    m_state = State::Waiting;
    m_retry.arm(steadyNowMs() + m_backoff.nextDelayMs());
}

void Connection::dropSocket()
{
    if (m_socket != nullptr) {
        m_socket->setWatch(nullptr, nullptr);
    }
    const auto discard = [this](QAbstractSocket* socket) {
        if (socket != nullptr) {
            socket->disconnect(this);
            socket->abort();
            socket->deleteLater();
        }
    };
    discard(std::exchange(m_attempt, nullptr));
    discard(std::exchange(m_socket, nullptr));
}

QString Connection::endpointText() const
{
    return QStringLiteral("%1:%2").arg(m_endpoint.host, QString::number(m_endpoint.port));
}
