#include <plugin_management/connection_p.h>

#include <QLoggingCategory>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

Q_LOGGING_CATEGORY(logConnection, "host.connection", QtInfoMsg)

constexpr int defaultLimitMs = 5000;
constexpr unsigned unacknowledgedLimitMs = 10000;

} // namespace

void WorkerSocket::setWatch(Watch watch, void* owner)
{
    m_watch = watch;
    m_owner = owner;
}

void WorkerSocket::setLinkOptions()
{
    setSocketOption(LowDelayOption, 1);
    setSocketOption(KeepAliveOption, 1);
    ::setsockopt(static_cast<int>(socketDescriptor()), IPPROTO_TCP, TCP_USER_TIMEOUT,
                 &unacknowledgedLimitMs, sizeof(unacknowledgedLimitMs));
}

qint64 WorkerSocket::writeData(const char* data, qint64 size)
{
    const qint64 written = QTcpSocket::writeData(data, size);
    if (m_watch != nullptr && written > 0) {
        m_watch(m_owner, true, data, written);
    }
    return written;
}

qint64 WorkerSocket::readData(char* data, qint64 size)
{
    const qint64 count = QTcpSocket::readData(data, size);
    if (m_watch != nullptr && count > 0) {
        m_watch(m_owner, false, data, count);
    }
    return count;
}

Connection::Connection(QObject* parent) : QObject(parent)
{
    m_limit.setSingleShot(true);
    m_retry.setSingleShot(true);
    m_retry.setTimerType(Qt::PreciseTimer);
    connect(&m_limit, &QTimer::timeout, this, [this] {
        attemptFailed(QStringLiteral("no answer within %1 ms").arg(m_limit.interval()));
    });
    connect(&m_retry, &QTimer::timeout, this, [this] {
        ++m_retries;
        startAttempt(State::Reopening);
    });
}

Connection::~Connection()
{
    dropSocket();
    if (m_inSocketSignal == 0) {
        return; // the sockets go as children
    }
    const auto sockets = findChildren<WorkerSocket*>();
    for (WorkerSocket* socket : sockets) {
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
    m_limit.stop();
    m_retry.stop();
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
    m_socket = new WorkerSocket(this);
    connectSignals();
    m_limit.start(m_endpoint.limitMs > 0 ? m_endpoint.limitMs : defaultLimitMs);
    m_socket->connectToHost(m_endpoint.host, m_endpoint.port,
                            QIODevice::ReadWrite | QIODevice::Unbuffered);
}

// A socket must outlive its own signals, whatever a slot does: handle() counts them for the
// destructor.
template <typename Handler>
void Connection::handle(Handler handler)
{
    const QPointer<Connection> self(this);
    ++m_inSocketSignal;
    handler();
    if (self) {
        --m_inSocketSignal;
    }
}

void Connection::connectSignals()
{
    connect(m_socket, &QTcpSocket::connected, this,
            [this] { handle([this] { attemptSucceeded(); }); });
    connect(m_socket, &QTcpSocket::readyRead, this,
            [this] { handle([this] { emit readable(); }); });
    connect(m_socket, &QTcpSocket::disconnected, this,
            [this] { handle([this] { checkSocket(); }); });
    connect(m_socket, &QAbstractSocket::errorOccurred, this,
            [this] { handle([this] { socketFailed(); }); });
}

void Connection::socketFailed()
{
    if (m_state == State::Open) {
        checkSocket();
    } else {
        attemptFailed(m_socket->errorString());
    }
}

void Connection::attemptSucceeded()
{
    m_limit.stop();
    m_socket->setLinkOptions();
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
    m_limit.stop();
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
    m_retry.start(m_backoff.nextDelayMs());
}

void Connection::dropSocket()
{
    if (m_socket == nullptr) {
        return;
    }
    WorkerSocket* socket = m_socket;
    m_socket = nullptr;
    socket->disconnect(this);
    socket->setWatch(nullptr, nullptr);
    socket->abort();
    socket->deleteLater();
}

QString Connection::endpointText() const
{
    return QStringLiteral("%1:%2").arg(m_endpoint.host).arg(m_endpoint.port);
}
