#include <plugin_management/worker_socket_p.h>

#include <QHostAddress>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int unacknowledgedLimitMs = 10000;

void setOption(int descriptor, int level, int option, int value)
{
    ::setsockopt(descriptor, level, option, &value, sizeof(value));
}

} // namespace

WorkerSocket::WorkerSocket(QObject* parent) : QAbstractSocket(TcpSocket, parent) { }

WorkerSocket::~WorkerSocket() { closeDescriptor(); }

bool WorkerSocket::adopt(QAbstractSocket& connected, const SocketPoll::Handler& readable)
{
    const int descriptor =
        ::fcntl(static_cast<int>(connected.socketDescriptor()), F_DUPFD_CLOEXEC, 0);
    const std::shared_ptr<EventHub> hub = EventHub::ofThisThread();
    if (descriptor < 0 || !hub->watch(descriptor, readable)) {
        setErrorString(qt_error_string(errno));
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        return false;
    }
    m_hub = hub;
    m_descriptor = descriptor;
    setLinkOptions();
    copyAddresses(connected);
    connected.abort(); // closes its own descriptor only
    setOpenMode(ReadWrite | Unbuffered);
    setSocketState(ConnectedState);
    return true;
}

// What a field link needs: no delay, keep-alive probes, and an end within 10 s when the other side
// no longer acknowledges.
void WorkerSocket::setLinkOptions() const
{
    setOption(m_descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(m_descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(m_descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedLimitMs);
}

void WorkerSocket::copyAddresses(const QAbstractSocket& from)
{
    setPeerName(from.peerName());
    setPeerAddress(from.peerAddress());
    setPeerPort(from.peerPort());
    setLocalAddress(from.localAddress());
    setLocalPort(from.localPort());
}

void WorkerSocket::setWatch(Watch watch, void* owner)
{
    m_watch = watch;
    m_owner = owner;
}

qint64 WorkerSocket::bytesAvailable() const
{
    int count = 0;
    const bool known = m_descriptor >= 0 && ::ioctl(m_descriptor, FIONREAD, &count) == 0;
    return known ? count : 0;
}

qint64 WorkerSocket::readData(char* data, qint64 size)
{
    if (m_descriptor < 0) {
        return -1;
    }
    const ssize_t count = ::recv(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT);
    if (count > 0) {
        if (m_watch != nullptr) {
            m_watch(m_owner, false, data, count);
        }
        return count;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return 0;
    }
    if (count == 0 || errno == ECONNRESET) {
        end(RemoteHostClosedError, QStringLiteral("the other side closed the connection"));
    } else {
        end(NetworkError, qt_error_string(errno));
    }
    return -1;
}

qint64 WorkerSocket::writeData(const char* data, qint64 size)
{
    if (m_descriptor < 0) {
        return -1;
    }
    const ssize_t count =
        ::send(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count > 0) {
        if (m_watch != nullptr) {
            m_watch(m_owner, true, data, count);
        }
        return count;
    }
    if (count == 0 || errno == EAGAIN || errno == EINTR) {
        return 0;
    }
    if (errno == EPIPE || errno == ECONNRESET) {
        end(RemoteHostClosedError, QStringLiteral("the other side closed the connection"));
    } else {
        end(NetworkError, qt_error_string(errno));
    }
    return -1;
}

void WorkerSocket::end(SocketError error, const QString& why)
{
    setSocketError(error);
    setErrorString(why);
    closeDescriptor();
    setSocketState(UnconnectedState);
}

void WorkerSocket::disconnectFromHost()
{
    closeDescriptor();
    QAbstractSocket::disconnectFromHost();
}

void WorkerSocket::closeDescriptor()
{
    if (m_descriptor < 0) {
        return;
    }
    m_hub->unwatch(m_descriptor);
    ::close(m_descriptor);
    m_descriptor = -1;
}

bool WorkerSocket::waitForReadyRead(int limitMs)
{
    pollfd wanted{m_descriptor, POLLIN, 0};
    return m_descriptor >= 0 && ::poll(&wanted, 1, limitMs) > 0;
}

bool WorkerSocket::waitForBytesWritten(int limitMs)
{
    Q_UNUSED(limitMs)
    return false; // nothing is ever left to write
}

bool WorkerSocket::waitForDisconnected(int limitMs)
{
    Q_UNUSED(limitMs)
    return m_descriptor < 0;
}
