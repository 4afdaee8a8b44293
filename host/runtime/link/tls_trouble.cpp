#include <runtime/link/tls_trouble.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

struct Reason
{
    int number;
    const char* text;
};

constexpr const char* refused = "the device refuses our certificate; give another one";
constexpr const char* tooOld = "the device has no TLS 1.2 or newer; it needs an update";

constexpr std::array<Reason, 8> alerts{{
    {GNUTLS_A_CERTIFICATE_REQUIRED,
     "the device wants a certificate of ours; give it as 'tlsCert' and 'tlsKey'"},
    {GNUTLS_A_UNKNOWN_CA,
     "the device does not know the authority of our certificate; give another one"},
    {GNUTLS_A_CERTIFICATE_EXPIRED,
     "the device says that our certificate has expired; give a new one"},
    {GNUTLS_A_BAD_CERTIFICATE, refused},
    {GNUTLS_A_CERTIFICATE_UNKNOWN, refused},
    {GNUTLS_A_UNSUPPORTED_CERTIFICATE, refused},
    {GNUTLS_A_ACCESS_DENIED, refused},
    {GNUTLS_A_PROTOCOL_VERSION, tooOld},
}};

constexpr std::array<Reason, 2> errors{{
    {GNUTLS_E_UNSUPPORTED_VERSION_PACKET, tooOld},
    {GNUTLS_E_KEY_USAGE_VIOLATION,
     "the device's certificate is not meant for a server; the device needs another one"},
}};

template <typename Reasons>
const char* known(const Reasons& reasons, int number)
{
    const auto* reason = std::find_if(reasons.cbegin(), reasons.cend(),
                                      [&](const Reason& each) { return each.number == number; });
    return reason != reasons.cend() ? reason->text : nullptr;
}

QString failed(const char* reason)
{
    QString text = QLatin1String(reason != nullptr ? reason : "no reason given");
    text.chop(text.endsWith(QLatin1Char('.')) ? 1 : 0);
    return QStringLiteral("TLS failed (%1)").arg(text);
}

QString alertText(gnutls_alert_description_t alert)
{
    const char* text = known(alerts, alert);
    return text != nullptr ? QString::fromLatin1(text) : failed(gnutls_alert_get_name(alert));
}

bool isEnd(int error)
{
    return error == GNUTLS_E_SUCCESS || error == GNUTLS_E_PREMATURE_TERMINATION
        || error == GNUTLS_E_SESSION_EOF;
}

} // namespace

QString TlsTrouble::text(gnutls_session_t session) const
{
    if (isForeign) {
        return QStringLiteral("what answers does not speak TLS; check the port, or leave TLS out");
    }
    if (error == GNUTLS_E_FATAL_ALERT_RECEIVED) {
        return alertText(gnutls_alert_get(session));
    }
    if (error == GNUTLS_E_PULL_ERROR || error == GNUTLS_E_PUSH_ERROR) {
        const bool isClosed = systemError == ECONNRESET || systemError == EPIPE;
        return isClosed ? closed() : qt_error_string(systemError);
    }
    const char* text = known(errors, error);
    if (text != nullptr) {
        return QLatin1String(text);
    }
    return isEnd(error) ? closed() : failed(gnutls_strerror(error));
}

QString TlsTrouble::closed() const
{
    return isReady
        ? QStringLiteral("the device closed the connection")
        : QStringLiteral("the device closed the connection in the TLS handshake; check that TLS "
                         "is what it speaks on this port");
}
