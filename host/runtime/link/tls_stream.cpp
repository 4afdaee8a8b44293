#include <runtime/link/tls_stream.h>

#include <runtime/link/tls_trouble.h>

#include <QHostAddress>

#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

/// How OpenSSL reads and writes: one recv() for all that has arrived, and no signal when the other
/// side has gone.
struct TlsStream::Bio
{
    static int write(BIO* bio, const char* data, int size)
    {
        const TlsStream& stream = *static_cast<TlsStream*>(BIO_get_data(bio));
        BIO_clear_retry_flags(bio);
        const ssize_t count = ::send(stream.m_descriptor, data, static_cast<std::size_t>(size),
                                     MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            BIO_set_retry_write(bio);
        }
        return static_cast<int>(count);
    }

    static int read(BIO* bio, char* data, int size)
    {
        TlsStream& stream = *static_cast<TlsStream*>(BIO_get_data(bio));
        BIO_clear_retry_flags(bio);
        const int count = stream.m_first < stream.m_end ? 1 : fill(stream);
        if (count <= 0) {
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
                BIO_set_retry_read(bio);
            }
            return count;
        }
        const int taken = std::min(size, stream.m_end - stream.m_first);
        std::memcpy(data, stream.m_arrived.data() + stream.m_first,
                    static_cast<std::size_t>(taken));
        stream.m_first += taken;
        return taken;
    }

    static long control(BIO*, int command, long, void*)
    {
        return command == BIO_CTRL_FLUSH ? 1 : 0;
    }

    static BIO_METHOD* method()
    {
        static BIO_METHOD* const made = [] {
            BIO_METHOD* method = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "link");
            BIO_meth_set_write(method, write);
            BIO_meth_set_read(method, read);
            BIO_meth_set_ctrl(method, control);
            return method;
        }();
        return made;
    }

    static int fill(TlsStream& stream)
    {
        const ssize_t count = ::recv(stream.m_descriptor, stream.m_arrived.data(),
                                     stream.m_arrived.size(), MSG_DONTWAIT);
        stream.m_first = 0;
        stream.m_end = static_cast<int>(std::max<ssize_t>(count, 0));
        return static_cast<int>(count);
    }
};

namespace {

// Of an empty queue it costs 840 instructions, of which an order would have three times.
void clearErrors()
{
    if (ERR_peek_error() != 0) {
        ERR_clear_error();
    }
}

// A name must be the certificate's, and an address too; only a name is told in advance.
void expectName(SSL* ssl, const QString& name)
{
    const QByteArray text = name.toUtf8();
    if (QHostAddress(name).isNull()) {
        SSL_set1_host(ssl, text.constData());
        SSL_set_tlsext_host_name(ssl, text.constData());
    } else {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), text.constData());
    }
}

} // namespace

TlsStream::TlsStream(int descriptor, const QString& host, const TlsSettings& settings,
                     const More& more)
    : m_descriptor(descriptor), m_more(more), m_context(settings.context),
      m_ssl(SSL_new(m_context.get()), SSL_free)
{
    BIO* bio = BIO_new(Bio::method());
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    SSL_set_bio(m_ssl.get(), bio, bio);
    SSL_set_connect_state(m_ssl.get());
    expectName(m_ssl.get(), settings.name.isEmpty() ? host : settings.name);
    TlsTrouble::watchCertificates(m_ssl.get(), m_trouble);
}

TlsStream::~TlsStream() = default;

TlsStream::Handshake TlsStream::shakeHands()
{
    clearErrors();
    const int result = SSL_do_handshake(m_ssl.get());
    if (result == 1) {
        tellMore();
        return Handshake::Done;
    }
    return isOver(result) ? Handshake::Failed : Handshake::Under;
}

void TlsStream::end()
{
    if (SSL_is_init_finished(m_ssl.get()) != 0 && m_trouble.isEmpty()) {
        clearErrors();
        SSL_shutdown(m_ssl.get());
    }
}

qint64 TlsStream::receive(char* data, qint64 size)
{
    // Without OpenSSL, for which nothing is an error to deal with: 1,500 instructions of an order.
    if (!m_hasMore && Bio::fill(*this) < 0) {
        return isOverBySystem(errno) ? -1 : 0;
    }
    clearErrors();
    const int count = SSL_read(m_ssl.get(), data, static_cast<int>(size));
    tellMore();
    if (count > 0) {
        return count;
    }
    return isOver(count) ? -1 : 0;
}

// A header that was read alone does not count as pending.
bool TlsStream::isWithinRecord() const
{
    return SSL_has_pending(m_ssl.get()) != 0
        || std::strcmp(SSL_rstate_string(m_ssl.get()), "RB") == 0; // it reads a body
}

qint64 TlsStream::send(const char* data, qint64 size)
{
    if (isWithinRecord()) { // its rest would look like this request's reply
        m_trouble = QStringLiteral("a part of something came unasked");
        return -1;
    }
    clearErrors();
    const int count = SSL_write(m_ssl.get(), data, static_cast<int>(size));
    if (count > 0) {
        return count;
    }
    if (!isOver(count)) { // a record that has left in part is nothing to go on with
        m_trouble = QStringLiteral("the device takes no more requests");
    }
    return -1;
}

qint64 TlsStream::waiting() const { return SSL_pending(m_ssl.get()); }

bool TlsStream::isOverBySystem(int error)
{
    if (error == EAGAIN || error == EINTR) {
        return false;
    }
    clearErrors();
    errno = error;
    m_trouble = TlsTrouble::text(*m_ssl, SSL_ERROR_SYSCALL);
    return true;
}

bool TlsStream::isOver(int result)
{
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
        return false;
    }
    if (m_trouble.isEmpty()) { // a certificate's is told by then
        m_trouble = TlsTrouble::text(*m_ssl, error);
    }
    return true;
}

void TlsStream::tellMore()
{
    const bool hasMore = m_first < m_end || SSL_pending(m_ssl.get()) > 0;
    if (hasMore != m_hasMore) {
        m_hasMore = hasMore;
        m_more(hasMore);
    }
}
