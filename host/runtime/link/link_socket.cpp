#include <runtime/link/link_socket.h>

#include <QHostAddress>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace {

constexpr std::size_t drainSize = 4096;

} // namespace

LinkSocket::LinkSocket(const Watch& watch) : QAbstractSocket(TcpSocket, nullptr), m_watch(watch) { }

LinkSocket::~LinkSocket() = default;

void LinkSocket::adopt(int descriptor, const QString& peerName, const QHostAddress& peer,
                       quint16 port)
{
    m_descriptor = descriptor;
    setPeerName(peerName);
    setPeerAddress(peer);
    setPeerPort(port);
    setOpenMode(ReadWrite | Unbuffered);
    setSocketState(ConnectedState);
    beginRequest();
}

void LinkSocket::end()
{
    m_descriptor = -1;
    setPeerAddress(QHostAddress());
    setSocketState(UnconnectedState);
}

void LinkSocket::beginRequest()
{
    m_hasWritten = false;
    m_isStale = false;
}

qint64 LinkSocket::bytesAvailable() const
{
    int count = 0;
    const bool known = m_descriptor >= 0 && ::ioctl(m_descriptor, FIONREAD, &count) == 0;
    return known ? count : 0;
}

qint64 LinkSocket::receive(char* data, qint64 size)
{
    if (state() != ConnectedState) {
        return -1;
    }
    const ssize_t count = ::recv(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT);
    if (count > 0) {
        return count;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return 0;
    }
    fail(count == 0 ? ECONNRESET : errno);
    return -1;
}

// A worker function reads: before its request to drop what has come late, behind it for the reply.
qint64 LinkSocket::readData(char* data, qint64 size)
{
    if (m_isStale || size == 0) { // readAll() asks for nothing when size() has told of nothing
        return 0;
    }
    const qint64 count = receive(data, size);
    if (count > 0 && !m_hasWritten) {
        m_isStale = true;
        m_watch.drained(data, static_cast<int>(count));
    }
    return count;
}

qint64 LinkSocket::size() const
{
    const qint64 nothing = pos();
    if (m_hasWritten) {
        const qint64 waiting = bytesAvailable();
        return waiting > 0 ? pos() + waiting : nothing;
    }
    // readAll() asks a device that it may change, by way of a function that may not.
    auto* self = const_cast<LinkSocket*>(this);
    std::array<char, drainSize> dropped;
    self->readData(dropped.data(), dropped.size());
    return nothing;
}

qint64 LinkSocket::writeData(const char* data, qint64 size)
{
    if (state() != ConnectedState) {
        return -1;
    }
    if (m_isStale) {
        return size;
    }
    const ssize_t count =
        ::send(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    const int error = count < 0 ? errno : EAGAIN;
    if (count > 0) {
        m_hasWritten = true;
        m_watch.written(data, static_cast<int>(count));
    }
    if (count == size) {
        return count;
    }
    // With one request out at a time the system always has room for it, unless the device has
    // stopped reading. What is left of it will never leave.
    fail(error);
    return -1;
}

void LinkSocket::fail(int error)
{
    const bool closed = error == ECONNRESET || error == EPIPE;
    setSocketError(closed ? RemoteHostClosedError : NetworkError);
    setErrorString(closed ? QStringLiteral("the device closed the connection")
                          : qt_error_string(error));
    setSocketState(UnconnectedState);
}

void LinkSocket::disconnectFromHost() { setSocketState(UnconnectedState); }

bool LinkSocket::waitForReadyRead(int limitMs)
{
    pollfd wanted{m_descriptor, POLLIN, 0};
    return m_descriptor >= 0 && ::poll(&wanted, 1, limitMs) > 0;
}

bool LinkSocket::waitForBytesWritten(int limitMs)
{
    Q_UNUSED(limitMs)
    return false; // nothing is ever left to write
}

bool LinkSocket::waitForDisconnected(int limitMs)
{
    Q_UNUSED(limitMs)
    return state() == UnconnectedState;
}
