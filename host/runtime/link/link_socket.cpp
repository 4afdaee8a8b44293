#include <runtime/link/link_socket.h>

#include <QHostAddress>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t drainSize = 4096;
constexpr std::size_t rawSize = 1536; // what becomes of it fits into what readers bring along

} // namespace

LinkSocket::LinkSocket(const Watch& watch) : QAbstractSocket(TcpSocket, nullptr), m_watch(watch) { }

LinkSocket::~LinkSocket() = default;

void LinkSocket::adopt(int descriptor, const QString& peerName, const QHostAddress& peer,
                       quint16 port)
{
    m_descriptor = descriptor;
    begin(peerName, peer, port);
}

void LinkSocket::adopt(Stream& stream, const QString& peerName, const QHostAddress& peer,
                       quint16 port)
{
    m_stream = &stream;
    begin(peerName, peer, port);
}

void LinkSocket::begin(const QString& peerName, const QHostAddress& peer, quint16 port)
{
    setPeerName(peerName);
    setPeerAddress(peer);
    setPeerPort(port);
    setOpenMode(ReadWrite | Unbuffered);
    setSocketState(ConnectedState);
    m_hasReceived = false;
    if (m_translation) {
        m_translation->begin();
        m_translated.clear();
    }
    beginRequest();
}

void LinkSocket::setTranslation(std::unique_ptr<Translation> translation)
{
    m_translation = std::move(translation);
}

void LinkSocket::end()
{
    m_descriptor = -1;
    m_stream = nullptr;
    setPeerAddress(QHostAddress());
    setSocketState(UnconnectedState);
}

void LinkSocket::beginRequest()
{
    m_hasWritten = false;
    m_isStale = false;
    endRequest();
}

void LinkSocket::beginTurn(int unit)
{
    m_translated.clear();
    if (m_translation) {
        m_translation->setUnit(unit);
    }
}

bool LinkSocket::tellsRepliesApart() const
{
    return m_translation && m_translation->tellsRepliesApart();
}

void LinkSocket::endRequest()
{
    if (m_translation) {
        m_translation->endRequest();
    }
}

qint64 LinkSocket::bytesAvailable() const
{
    if (m_stream != nullptr) {
        return m_stream->waiting();
    }
    int count = 0;
    const bool known = m_descriptor >= 0 && ::ioctl(m_descriptor, FIONREAD, &count) == 0;
    return known ? count : 0;
}

qint64 LinkSocket::receive(char* data, qint64 size)
{
    return m_translation ? receiveTranslated(data, size) : receiveRaw(data, size);
}

qint64 LinkSocket::receiveTranslated(char* data, qint64 size)
{
    if (m_translated.isEmpty() && !translateMore()) {
        return -1;
    }
    const auto taken = static_cast<int>(std::min<qint64>(size, m_translated.size()));
    std::memcpy(data, m_translated.constData(), static_cast<std::size_t>(taken));
    m_translated.remove(0, taken);
    return taken;
}

// False when the connection has ended.
bool LinkSocket::translateMore()
{
    std::array<char, rawSize> raw;
    const qint64 count = receiveRaw(raw.data(), raw.size());
    if (count <= 0) {
        return count == 0;
    }
    m_translated = m_translation->fromWire(raw.data(), static_cast<int>(count));
    const Translation::Dropped dropped = m_translation->takeDropped();
    if (dropped.bytes > 0) {
        m_watch.dropped(dropped.bytes, dropped.replies);
    }
    if (m_translation->isFlooded()) {
        fail(NetworkError, QStringLiteral("the device sends replies that nobody asked for"));
    }
    return state() == ConnectedState;
}

qint64 LinkSocket::receiveRaw(char* data, qint64 size)
{
    if (state() != ConnectedState) {
        return -1;
    }
    if (m_stream != nullptr) {
        return receiveFrom(*m_stream, data, size);
    }
    const ssize_t count = ::recv(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT);
    if (count > 0) {
        m_watch.passed(false, data, static_cast<int>(count));
        if (!isTlsAlert(data, count)) {
            return count;
        }
        fail(NetworkError,
             QStringLiteral("the device answers in TLS; connect with 'tls', or to another port"));
        return -1;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return 0;
    }
    failBySystem(count == 0 ? ECONNRESET : errno);
    return -1;
}

// How a TLS port answers what is none, RFC 8446 section 6. As a header it would tell a length that
// no frame has, and as an RTU frame it would have a wrong CRC.
bool LinkSocket::isTlsAlert(const char* data, qint64 size)
{
    constexpr std::array<char, 2> alert{0x15, 0x03};
    constexpr std::array<char, 3> fatal{0x00, 0x02, 0x02};
    constexpr int alertSize = 7;
    return !std::exchange(m_hasReceived, true) && size == alertSize
        && std::memcmp(data, alert.data(), alert.size()) == 0
        && std::memcmp(data + 3, fatal.data(), fatal.size()) == 0;
}

// A worker function reads: before its request to drop what has come late, behind it for the reply.
qint64 LinkSocket::readData(char* data, qint64 size)
{
    if (m_isStale || size == 0) { // readAll() asks for nothing when size() has told of nothing
        return 0;
    }
    const qint64 count = mustFindNothing() ? receiveRaw(data, size) : receive(data, size);
    if (count > 0 && !m_hasWritten) {
        m_isStale = true;
        m_watch.drained(static_cast<int>(count));
    }
    return count;
}

// Before a request, where a late reply could be taken for its own.
bool LinkSocket::mustFindNothing() const { return !m_hasWritten && !tellsRepliesApart(); }

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
    const qint64 count = m_translation ? sendTranslated(data, size) : sendRaw(data, size);
    if (count > 0) {
        m_hasWritten = true;
        m_watch.written(data, static_cast<int>(count));
    }
    return count;
}

// A frame leaves whole or not at all.
qint64 LinkSocket::sendTranslated(const char* data, qint64 size)
{
    const QByteArray wire = m_translation->toWire(data, static_cast<int>(size));
    const qint64 count = wire.isEmpty() ? 0 : sendRaw(wire.constData(), wire.size());
    return count > 0 && count == wire.size() ? size : std::min<qint64>(count, 0);
}

qint64 LinkSocket::sendRaw(const char* data, qint64 size)
{
    if (m_stream != nullptr) {
        return sendBy(*m_stream, data, size);
    }
    const ssize_t count =
        ::send(m_descriptor, data, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    const int error = count < 0 ? errno : EAGAIN;
    if (count > 0) {
        m_watch.passed(true, data, static_cast<int>(count));
    }
    if (count == size) {
        return count;
    }
    // With one request out at a time the system always has room for it, unless the device has
    // stopped reading. What is left of it will never leave.
    failBySystem(error);
    return count > 0 ? count : -1;
}

qint64 LinkSocket::receiveFrom(Stream& stream, char* data, qint64 size)
{
    const qint64 count = stream.receive(data, size);
    if (count > 0) {
        m_watch.passed(false, data, static_cast<int>(count));
    } else if (count < 0) {
        fail(NetworkError, stream.trouble());
    }
    return count;
}

qint64 LinkSocket::sendBy(Stream& stream, const char* data, qint64 size)
{
    const qint64 count = stream.send(data, size);
    if (count > 0) {
        m_watch.passed(true, data, static_cast<int>(count));
    } else if (count < 0) {
        fail(NetworkError, stream.trouble());
    }
    return count;
}

void LinkSocket::failBySystem(int error)
{
    const bool isClosed = error == ECONNRESET || error == EPIPE;
    const bool isAtOnce = m_hasWritten && !m_hasReceived;
    const char* how = isAtOnce
        ? "the device closed the connection before any answer; it may have no "
          "room for one more, or want TLS on this port"
        : "the device closed the connection";
    fail(isClosed ? RemoteHostClosedError : NetworkError,
         isClosed ? QString::fromLatin1(how) : qt_error_string(error));
}

void LinkSocket::fail(SocketError error, const QString& why)
{
    setSocketError(error);
    setErrorString(why);
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
