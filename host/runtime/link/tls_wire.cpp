#include <runtime/link/tls_wire.h>

#include <QByteArray>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

void TlsWire::carry(gnutls_session_t session)
{
    gnutls_transport_set_ptr(session, this);
    gnutls_transport_set_vec_push_function(session, push);
    gnutls_transport_set_pull_function(session, pull);
    gnutls_transport_set_pull_timeout_function(session, pullTimeout);
}

ssize_t TlsWire::fill()
{
    const ssize_t count = ::recv(m_descriptor, m_arrived.data(), m_arrived.size(), MSG_DONTWAIT);
    m_error = errno;
    m_first = 0;
    m_end = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    return count;
}

bool TlsWire::mustWait() const { return m_error == EAGAIN || m_error == EINTR; }

// In one packet: who refuses the first part of a handshake's would close before the others, and
// its reason would be lost.
ssize_t TlsWire::push(gnutls_transport_ptr_t wire, const giovec_t* parts, int count)
{
    TlsWire& self = *static_cast<TlsWire*>(wire);
    if (count == 1) {
        return self.send(parts->iov_base, parts->iov_len);
    }
    QByteArray all;
    std::for_each(parts, parts + count, [&](const giovec_t& part) {
        all.append(static_cast<const char*>(part.iov_base), static_cast<int>(part.iov_len));
    });
    return self.send(all.constData(), static_cast<std::size_t>(all.size()));
}

ssize_t TlsWire::send(const void* data, std::size_t size)
{
    const ssize_t count = ::send(m_descriptor, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    m_error = errno;
    return count;
}

ssize_t TlsWire::pull(gnutls_transport_ptr_t wire, void* data, std::size_t size)
{
    TlsWire& self = *static_cast<TlsWire*>(wire);
    const ssize_t count = self.hasMore() ? 1 : self.fill();
    if (count <= 0) {
        return count;
    }
    const char* from = self.m_arrived.data() + self.m_first;
    const std::size_t taken = std::min(size, self.m_end - self.m_first);
    std::memcpy(data, from, taken);
    self.m_bounds.pass(from, taken);
    self.m_first += taken;
    return static_cast<ssize_t>(taken);
}

int TlsWire::pullTimeout(gnutls_transport_ptr_t wire, unsigned)
{
    TlsWire& self = *static_cast<TlsWire*>(wire);
    return self.hasMore() || self.fill() >= 0 ? 1 : 0;
}
