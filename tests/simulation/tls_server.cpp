#include "tls_server.h"

#include <QString>

#include <openssl/err.h>

#include <algorithm>
#include <array>

namespace {

// What is sent is as long in each run: the signature of this key always is, and tickets without
// the state of the session in them.
SSL_CTX* context()
{
    static SSL_CTX* const made = [] {
        SSL_CTX* context = SSL_CTX_new(TLS_server_method());
        const QByteArray file = TlsServer::certificateFile().toUtf8();
        SSL_CTX_use_certificate_file(context, file.constData(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(context, file.constData(), SSL_FILETYPE_PEM);
        SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
        SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
        return context;
    }();
    return made;
}

QByteArray readAll(SSL* ssl)
{
    QByteArray all;
    std::array<char, 4096> some;
    int count = 0;
    while ((count = SSL_read(ssl, some.data(), static_cast<int>(some.size()))) > 0) {
        all.append(some.data(), count);
    }
    ERR_clear_error();
    return all;
}

} // namespace

QString TlsServer::certificateFile() { return QStringLiteral(CERTIFICATE_FILE); }

TlsServer::TlsServer()
    : m_ssl(SSL_new(context()), SSL_free), m_in(BIO_new(BIO_s_mem())), m_out(BIO_new(BIO_s_mem()))
{
    SSL_set_bio(m_ssl.get(), m_in, m_out);
    SSL_set_accept_state(m_ssl.get());
}

QByteArray TlsServer::opened(const QByteArray& wire)
{
    BIO_write(m_in, wire.constData(), wire.size());
    return readAll(m_ssl.get());
}

QByteArray TlsServer::takeAnswer() { return take({}); }

QByteArray TlsServer::sealed(const QByteArray& bytes)
{
    if (bytes.isEmpty() || SSL_is_init_finished(m_ssl.get()) == 0) {
        return take(bytes);
    }
    const QByteArray first = newKey();
    SSL_write(m_ssl.get(), bytes.constData(), bytes.size());
    ERR_clear_error();
    return first + take(bytes);
}

// Seldom, as the process takes many within a second, by the clock of the machine, for an attack.
QByteArray TlsServer::newKey()
{
    constexpr int alone = 4;
    constexpr int askingForOne = 8;
    ++m_said;
    if (m_said != alone && m_said != askingForOne) {
        return {};
    }
    SSL_key_update(m_ssl.get(),
                   m_said == askingForOne ? SSL_KEY_UPDATE_REQUESTED
                                          : SSL_KEY_UPDATE_NOT_REQUESTED);
    SSL_do_handshake(m_ssl.get());
    return take({});
}

QByteArray TlsServer::take(const QByteArray& says)
{
    char* data = nullptr;
    const auto size = static_cast<int>(BIO_get_mem_data(m_out, &data));
    const QByteArray wire(data, size);
    BIO_reset(m_out);
    if (size > 0) {
        m_records.push_back({size, says});
    }
    return wire;
}

QByteArray TlsServer::received(int size)
{
    QByteArray says;
    while (size > 0 && !m_records.empty()) {
        Record& first = m_records.front();
        const int taken = std::min(size, first.left);
        first.left -= taken;
        size -= taken;
        m_hasPart = first.left > 0;
        if (first.left == 0) {
            says += first.says;
            m_records.pop_front();
        }
    }
    return says;
}
