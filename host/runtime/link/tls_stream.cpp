#include <runtime/link/tls_stream.h>

#include <runtime/link/tls_trouble.h>

#include <QHostAddress>

#include <new>
#include <vector>

namespace {

bool isPassing(ssize_t result)
{
    return result < 0 && gnutls_error_is_fatal(static_cast<int>(result)) == 0;
}

bool mustWait(ssize_t result) { return result == GNUTLS_E_AGAIN || result == GNUTLS_E_INTERRUPTED; }

std::vector<gnutls_datum_t> shownBy(gnutls_session_t session)
{
    unsigned count = 0;
    const gnutls_datum_t* first = gnutls_certificate_get_peers(session, &count);
    return {first, first + count};
}

// Certificates of RSA keys often say that these are to encrypt and not to sign, as it was before
// TLS 1.2, and what they are for is checked with the rest of them. It must not be said before the
// handshake's begin: less would be agreed on then.
int allowOldUsage(gnutls_session_t session, unsigned, unsigned, unsigned, const gnutls_datum_t*)
{
    gnutls_session_enable_compatibility_mode(session);
    return 0;
}

// Who has closed, does not listen, or has told its error knows already.
bool canBeTold(ssize_t error)
{
    return error < 0 && error != GNUTLS_E_PREMATURE_TERMINATION && error != GNUTLS_E_PULL_ERROR
        && error != GNUTLS_E_PUSH_ERROR && error != GNUTLS_E_FATAL_ALERT_RECEIVED;
}

} // namespace

TlsStream::TlsStream(int descriptor, const QString& host, const TlsSettings& settings,
                     const More& more)
    : m_wire(descriptor), m_more(more), m_settings(settings),
      m_name(settings.name.isEmpty() ? host : settings.name), m_session(nullptr, gnutls_deinit)
{
    // No session is resumed, and our certificate is shown to whoever asks for one.
    constexpr unsigned flags =
        GNUTLS_CLIENT | GNUTLS_NONBLOCK | GNUTLS_NO_TICKETS | GNUTLS_FORCE_CLIENT_CERT;
    gnutls_session_t session = nullptr;
    if (gnutls_init(&session, flags) < 0) {
        throw std::bad_alloc();
    }
    m_session.reset(session);
    setUp(session);
}

void TlsStream::setUp(gnutls_session_t session)
{
    gnutls_priority_set(session, m_settings.versions.get());
    gnutls_handshake_set_hook_function(session, GNUTLS_HANDSHAKE_SERVER_HELLO, GNUTLS_HOOK_POST,
                                       allowOldUsage);
    gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, m_settings.identity.get());
    gnutls_session_set_ptr(session, this);
    gnutls_session_set_verify_function(session, verify);
    m_wire.carry(session);
    gnutls_handshake_set_timeout(session, 0); // that is its owner's
    if (QHostAddress(m_name).isNull()) { // an address is not told in advance
        const QByteArray text = m_name.toUtf8();
        gnutls_server_name_set(session, GNUTLS_NAME_DNS, text.constData(),
                               static_cast<std::size_t>(text.size()));
    }
}

TlsStream::~TlsStream() = default;

int TlsStream::verify(gnutls_session_t session)
{
    auto& stream = *static_cast<TlsStream*>(gnutls_session_get_ptr(session));
    stream.m_trouble = stream.m_settings.authorities->objection(shownBy(session), stream.m_name);
    return stream.m_trouble.isEmpty() ? 0 : GNUTLS_E_CERTIFICATE_ERROR;
}

TlsStream::Handshake TlsStream::shakeHands()
{
    const int result = handshake();
    if (result != GNUTLS_E_SUCCESS) {
        return isOver(result) ? Handshake::Failed : Handshake::Under;
    }
    m_isReady = true;
    tellMore();
    return Handshake::Done;
}

int TlsStream::handshake()
{
    int result = 0;
    do {
        result = gnutls_handshake(m_session.get());
    } while (isPassing(result) && !mustWait(result) && result != GNUTLS_E_GOT_APPLICATION_DATA);
    return result;
}

void TlsStream::end()
{
    if (m_isReady && m_trouble.isEmpty()) {
        gnutls_bye(m_session.get(), GNUTLS_SHUT_WR);
    }
}

qint64 TlsStream::receive(char* data, qint64 size)
{
    ssize_t count = m_hasMore ? 1 : m_wire.fill();
    if (count < 0) { // without GnuTLS, as it is so once an order
        return isOver(m_wire.mustWait() ? GNUTLS_E_AGAIN : GNUTLS_E_PULL_ERROR) ? -1 : 0;
    }
    count = count == 0 ? GNUTLS_E_PREMATURE_TERMINATION
                       : takeData(data, static_cast<std::size_t>(size));
    tellMore();
    if (count > 0) {
        return count;
    }
    return isOver(count) ? -1 : 0;
}

// What is no data, such as a new key, ends a call before all was looked at that has arrived. A
// request would then be taken for one behind a part of something. As many as one buffer holds are
// enough: a device that sends nothing else does not get this thread for good.
ssize_t TlsStream::takeData(char* data, std::size_t size)
{
    constexpr int most = 64;
    ssize_t result = takeRecord(data, size);
    for (int i = 0; i < most && isPassing(result) && (m_wire.hasMore() || !mustWait(result)); ++i) {
        result = takeRecord(data, size);
    }
    return result;
}

// The other side may want a new handshake, with TLS 1.2. Data that it sends meanwhile are a reply
// still; GnuTLS gives the handshake up for them, and the connection will be lost.
ssize_t TlsStream::takeRecord(char* data, std::size_t size)
{
    if (m_isShaking) {
        const int result = handshake();
        m_isShaking = mustWait(result);
        if (result != GNUTLS_E_SUCCESS && result != GNUTLS_E_GOT_APPLICATION_DATA) {
            return result;
        }
    }
    const ssize_t result = gnutls_record_recv(m_session.get(), data, size);
    if (result == GNUTLS_E_REHANDSHAKE) {
        gnutls_priority_set(m_session.get(), m_settings.versions.get()); // as at first
        m_isShaking = true;
    }
    return result;
}

// Records that were handed over as a whole are opened at once, and what they say waits until it is
// taken.
bool TlsStream::isWithinRecord() const { return m_wire.isWithinRecord() || waiting() > 0; }

qint64 TlsStream::send(const char* data, qint64 size)
{
    if (isWithinRecord()) { // its rest would look like this request's reply
        m_trouble = QStringLiteral("a part of something came unasked");
        return -1;
    }
    // The other side may want to have small records.
    qint64 sent = 0;
    while (sent < size) {
        const ssize_t count = m_isShaking
            ? GNUTLS_E_AGAIN
            : gnutls_record_send(m_session.get(), data + sent,
                                 static_cast<std::size_t>(size - sent));
        if (count > 0) {
            sent += count;
            continue;
        }
        if (!isOver(count)) { // a record that has left in part is nothing to go on with
            m_trouble = QStringLiteral("the device takes no more requests");
        }
        return -1;
    }
    return sent;
}

qint64 TlsStream::waiting() const
{
    return static_cast<qint64>(gnutls_record_check_pending(m_session.get()));
}

bool TlsStream::isOver(ssize_t result)
{
    if (isPassing(result)) {
        return false;
    }
    if (m_trouble.isEmpty()) { // a certificate's is told by then
        const auto error = static_cast<int>(result);
        m_trouble =
            TlsTrouble{error, m_wire.error(), m_wire.isForeign(), m_isReady}.text(m_session.get());
    }
    if (canBeTold(result)) {
        gnutls_alert_send_appropriate(m_session.get(), static_cast<int>(result));
    }
    return true;
}

void TlsStream::tellMore()
{
    const bool hasMore = m_wire.hasMore() || waiting() > 0;
    if (hasMore != m_hasMore) {
        m_hasMore = hasMore;
        m_more(hasMore);
    }
}
