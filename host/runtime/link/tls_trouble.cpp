#include <runtime/link/tls_trouble.h>

#include <QDateTime>
#include <QHostAddress>
#include <QStringList>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace {

struct Fault
{
    int error;
    const char* text; // %1: whose certificate; %2: its end, begin or names, as the error has it
};

constexpr const char* unknownAuthority =
    "%1 comes from an authority that is not known here; give that one's certificate as 'tlsCa'";
constexpr const char* otherName = "%1 is for %2; if that is the device, name it so by 'tlsName'";
constexpr const char* weakKey = "%1 has a key that is too weak; the device needs a new one";

constexpr std::array<Fault, 16> faults{{
    {X509_V_ERR_CERT_HAS_EXPIRED, "%1 has expired, on %2; the device needs a new one"},
    {X509_V_ERR_CERT_NOT_YET_VALID, "%1 is not valid before %2; check the clocks of both sides"},
    {X509_V_ERR_HOSTNAME_MISMATCH, otherName},
    {X509_V_ERR_IP_ADDRESS_MISMATCH, otherName},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
     "%1 is signed by itself; if that is the device, give its certificate as 'tlsCa'"},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
     "%1 is that of an authority that is not believed; if it is to be, give it as 'tlsCa'"},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, unknownAuthority},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, unknownAuthority},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, unknownAuthority},
    {X509_V_ERR_INVALID_CA,
     "%1 is used as an authority's, and is none; the device needs one from an authority"},
    {X509_V_ERR_INVALID_PURPOSE, "%1 is not meant for a server; the device needs another one"},
    {X509_V_ERR_CERT_SIGNATURE_FAILURE,
     "%1 has a wrong signature, it was altered; do not trust this connection"},
    {X509_V_ERR_EE_KEY_TOO_SMALL, weakKey},
    {X509_V_ERR_CA_KEY_TOO_SMALL, weakKey},
    {X509_V_ERR_CA_MD_TOO_WEAK, "%1 has a signature that is too weak; the device needs a new one"},
    {X509_V_ERR_CERT_REVOKED, "%1 has been revoked; the device needs a new one"},
}};

QString date(const ASN1_TIME* time)
{
    tm parts{};
    ASN1_TIME_to_tm(time, &parts);
    const QDate day(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
    const QTime hour(parts.tm_hour, parts.tm_min, parts.tm_sec);
    return QDateTime(day, hour, Qt::UTC).toString(Qt::ISODate);
}

QString commonName(X509* certificate)
{
    std::array<char, 256> text{};
    const int size = X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName,
                                               text.data(), static_cast<int>(text.size()));
    return QString::fromUtf8(text.data(), std::max(size, 0));
}

QString alternativeName(const GENERAL_NAME* name)
{
    const ASN1_STRING* value = name->type == GEN_DNS ? name->d.dNSName : name->d.iPAddress;
    const unsigned char* data = ASN1_STRING_get0_data(value);
    constexpr int ipv4Size = 4;
    if (name->type == GEN_DNS) {
        return QString::fromUtf8(reinterpret_cast<const char*>(data), ASN1_STRING_length(value));
    }
    return ASN1_STRING_length(value) == ipv4Size
        ? QStringLiteral("%1.%2.%3.%4").arg(data[0]).arg(data[1]).arg(data[2]).arg(data[3])
        : QHostAddress(data).toString();
}

QString namesOf(X509* certificate)
{
    const std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES*)> all(
        static_cast<GENERAL_NAMES*>(
            X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
        GENERAL_NAMES_free);
    QStringList names;
    for (int i = 0; all && i < sk_GENERAL_NAME_num(all.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(all.get(), i);
        if (name->type == GEN_DNS || name->type == GEN_IPADD) {
            names.append(alternativeName(name));
        }
    }
    return names.isEmpty() ? commonName(certificate) : names.join(QLatin1String(", "));
}

QString detail(int error, X509* certificate)
{
    switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return date(X509_get0_notAfter(certificate));
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return date(X509_get0_notBefore(certificate));
    default:
        return namesOf(certificate);
    }
}

QString certificateText(int error, int depth, X509* certificate)
{
    const QString whose = depth == 0
        ? QStringLiteral("the device's certificate")
        : QStringLiteral("the certificate of '%1'").arg(commonName(certificate));
    const auto* fault = std::find_if(faults.cbegin(), faults.cend(),
                                     [&](const Fault& each) { return each.error == error; });
    if (fault == faults.cend()) {
        return QStringLiteral("%1 is refused (%2); the device needs another one")
            .arg(whose, QLatin1String(X509_verify_cert_error_string(error)));
    }
    const QString text = QLatin1String(fault->text);
    return text.contains(QLatin1String("%2")) ? text.arg(whose, detail(error, certificate))
                                              : text.arg(whose);
}

int checked(int isGood, X509_STORE_CTX* store)
{
    X509* certificate = X509_STORE_CTX_get_current_cert(store);
    if (isGood == 0 && certificate != nullptr) {
        const auto* ssl = static_cast<SSL*>(
            X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        *static_cast<QString*>(SSL_get_app_data(ssl)) = certificateText(
            X509_STORE_CTX_get_error(store), X509_STORE_CTX_get_error_depth(store), certificate);
    }
    return isGood;
}

struct Alert
{
    int reason;
    const char* text;
};

constexpr const char* refused = "the device refuses our certificate; give another one";
constexpr const char* noTls = "what answers does not speak TLS; check the port, or leave TLS out";
constexpr const char* tooOld = "the device has no TLS 1.2 or newer; it needs an update";

constexpr std::array<Alert, 12> alerts{{
    {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED,
     "the device wants a certificate of ours; give it as 'tlsCert' and 'tlsKey'"},
    {SSL_R_TLSV1_ALERT_UNKNOWN_CA,
     "the device does not know the authority of our certificate; give another one"},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED,
     "the device says that our certificate has expired; give a new one"},
    {SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, refused},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, refused},
    {SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, refused},
    {SSL_R_TLSV1_ALERT_ACCESS_DENIED, refused},
    {SSL_R_WRONG_VERSION_NUMBER, noTls},
    {SSL_R_HTTP_REQUEST, noTls},
    {SSL_R_UNSUPPORTED_PROTOCOL, tooOld},
    {SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, tooOld},
    {SSL_R_VERSION_TOO_LOW, tooOld},
}};

QString closed(const SSL& ssl)
{
    return SSL_is_init_finished(&ssl) != 0
        ? QStringLiteral("the device closed the connection")
        : QStringLiteral("the device closed the connection in the TLS handshake; check that TLS "
                         "is what it speaks on this port");
}

} // namespace

void TlsTrouble::watchCertificates(SSL* ssl, QString& trouble)
{
    SSL_set_app_data(ssl, &trouble);
    SSL_set_verify(ssl, SSL_VERIFY_PEER, checked);
}

QString TlsTrouble::text(const SSL& ssl, int error)
{
    const unsigned long last = ERR_peek_error();
    const auto* alert = std::find_if(alerts.cbegin(), alerts.cend(), [&](const Alert& each) {
        return ERR_GET_LIB(last) == ERR_LIB_SSL && ERR_GET_REASON(last) == each.reason;
    });
    if (alert != alerts.cend()) {
        return QLatin1String(alert->text);
    }
    if (error == SSL_ERROR_SSL) {
        const char* reason = ERR_reason_error_string(last);
        return QStringLiteral("TLS failed (%1)")
            .arg(QLatin1String(reason != nullptr ? reason : "no reason given"));
    }
    const bool bySystem = error == SSL_ERROR_SYSCALL && errno != 0 && errno != ECONNRESET
        && errno != EPIPE && errno != EAGAIN;
    return bySystem ? qt_error_string(errno) : closed(ssl);
}
