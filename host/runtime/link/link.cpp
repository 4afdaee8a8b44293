#include <runtime/link/link.h>

#include <QAbstractSocket>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int unacknowledgedLimitMs = 10000;

void setOption(int descriptor, int level, int option, int value)
{
    ::setsockopt(descriptor, level, option, &value, sizeof(value));
}

// What a field link needs: no delay, keep-alive probes, and an end within 10 s when the other side
// no longer acknowledges.
void setLinkOptions(int descriptor)
{
    setOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedLimitMs);
}

QString systemText(int error)
{
    const bool isFull = error == EMFILE || error == ENFILE;
    return qt_error_string(error)
        + (isFull ? QStringLiteral("; raise that limit, such as with 'ulimit -n 4096'")
                  : QString());
}

sockaddr_in ipv4(const QHostAddress& address, quint16 port)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(address.toIPv4Address());
    return to;
}

sockaddr_in6 ipv6(const QHostAddress& address, quint16 port)
{
    sockaddr_in6 to{};
    to.sin6_family = AF_INET6;
    to.sin6_port = htons(port);
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    std::memcpy(&to.sin6_addr, &bytes, sizeof(bytes));
    const QByteArray scope = address.scopeId().toLatin1();
    bool isNumber = false;
    const uint number = scope.toUInt(&isNumber);
    to.sin6_scope_id = isNumber ? number : ::if_nametoindex(scope.constData());
    return to;
}

int connectTo(int descriptor, const QHostAddress& address, quint16 port)
{
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        const sockaddr_in to = ipv4(address, port);
        return ::connect(descriptor, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    }
    const sockaddr_in6 to = ipv6(address, port);
    return ::connect(descriptor, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

} // namespace

Link::Link(const Events& events, const LinkSocket::Watch& watch)
    : m_events(events), m_socket(watch), m_lookup({this, &Link::found})
{
}

Link::~Link() { close(); }

void Link::open(const QString& host, quint16 port)
{
    close();
    m_host = host;
    m_port = port;
    if (m_serial) {
        openSerial();
        return;
    }
    NameLookup::Result known;
    if (m_lookup.start(host, known)) {
        found(known);
    }
}

void Link::close()
{
    m_lookup.cancel();
    m_addresses.clear();
    m_socket.end();
    closeDescriptor();
    if (m_serial) {
        m_serial->close();
    }
}

void Link::setSerial(const SerialSettings* settings)
{
    m_serial = settings == nullptr
        ? nullptr
        : std::make_unique<SerialLine>(
            *settings,
            SerialLine::Events{{this, &Link::serialOpened}, m_events.failed, m_events.readable});
}

void Link::openSerial()
{
    const QString why = m_serial->open();
    if (!why.isEmpty()) {
        m_events.failed(why);
    }
}

void Link::serialOpened()
{
    m_socket.adopt(*m_serial, m_host, QHostAddress(), m_port);
    m_events.opened();
}

void Link::found(const NameLookup::Result& result)
{
    m_addresses = result.addresses;
    m_trouble = result.error;
    connectNext();
}

void Link::connectNext()
{
    while (!m_addresses.isEmpty()) {
        m_address = m_addresses.takeFirst();
        if (startConnecting(m_address)) {
            return;
        }
        m_trouble = systemText(errno);
        closeDescriptor();
    }
    m_events.failed(m_trouble);
}

bool Link::startConnecting(const QHostAddress& address)
{
    const bool isIpv4 = address.protocol() == QAbstractSocket::IPv4Protocol;
    m_descriptor = ::socket(isIpv4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC,
                            IPPROTO_TCP);
    if (m_descriptor < 0) {
        return false;
    }
    setLinkOptions(m_descriptor);
    m_reactor = Reactor::ofThisThread();
    if (connectTo(m_descriptor, address, m_port) != 0 && errno != EINPROGRESS) {
        return false;
    }
    m_isConnecting = m_reactor->watch(m_descriptor, EPOLLOUT, {this, &Link::handleReady});
    return m_isConnecting;
}

void Link::handleReady(quint32 events)
{
    Q_UNUSED(events)
    if (m_isConnecting) {
        finishConnecting();
    } else if (m_isSecuring) {
        shakeHands();
    } else {
        m_events.readable();
    }
}

void Link::finishConnecting()
{
    int error = 0;
    socklen_t size = sizeof(error);
    ::getsockopt(m_descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error == 0 && !m_reactor->change(m_descriptor, EPOLLIN)) {
        error = errno;
    }
    if (error != 0) {
        m_trouble = qt_error_string(error);
        closeDescriptor();
        connectNext();
        return;
    }
    m_isConnecting = false;
    m_addresses.clear();
    if (m_tlsSettings) {
        secure();
        return;
    }
    m_socket.adopt(m_descriptor, m_host, m_address, m_port);
    m_events.opened();
}

void Link::secure()
{
    m_tls = std::make_unique<TlsStream>(m_descriptor, m_host, *m_tlsSettings,
                                        TlsStream::More{this, &Link::watchFor});
    m_isSecuring = true;
    shakeHands();
}

// A loop waits for room to write as a way to come back at once.
void Link::watchFor(bool more)
{
    m_reactor->change(m_descriptor, more ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

void Link::shakeHands()
{
    const TlsStream::Handshake state = m_tls->shakeHands();
    if (state == TlsStream::Handshake::Under) {
        return;
    }
    m_isSecuring = false;
    if (state == TlsStream::Handshake::Failed) {
        m_events.failed(m_tls->trouble());
        return;
    }
    m_socket.adopt(*m_tls, m_host, m_address, m_port);
    m_events.opened();
}

QString Link::missing() const
{
    return m_isSecuring ? QStringLiteral(" to the TLS handshake; is it a TLS port?") : QString();
}

void Link::look()
{
    if (m_serial) {
        m_serial->look();
        return;
    }
    const bool hasMore = m_tls && m_tls->hasMore();
    const int wanted = m_isConnecting || hasMore ? POLLIN | POLLOUT : POLLIN;
    pollfd ready{m_descriptor, static_cast<short>(wanted), 0};
    if (m_descriptor >= 0 && ::poll(&ready, 1, 0) > 0) {
        handleReady(0);
    }
}

void Link::closeDescriptor()
{
    if (m_descriptor < 0) {
        return;
    }
    if (m_tls) {
        m_tls->end();
        m_tls.reset();
    }
    m_reactor->unwatch(m_descriptor);
    ::close(m_descriptor);
    m_descriptor = -1;
    m_isConnecting = false;
    m_isSecuring = false;
}
