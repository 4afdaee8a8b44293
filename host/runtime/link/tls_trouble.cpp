#include <runtime/link/tls_trouble.h>

#include <QSslCertificate>
#include <QSslError>
#include <QSslKey>
#include <QSslSocket>

#include <algorithm>
#include <array>

namespace {

constexpr const char* unknownAuthority =
    "%1 comes from an authority that is not known here; give that one's certificate as 'tlsCa'";

struct Fault
{
    QSslError::SslError error;
    const char* text; // %1: whose certificate, %2: its date or names
};

// The first that applies is told: what is nearest to the cause stands first.
constexpr std::array<Fault, 15> faults{{
    {QSslError::NoPeerCertificate, "the device has shown no certificate; it needs one"},
    {QSslError::CertificateSignatureFailed,
     "%1 has a wrong signature, it was altered; do not trust this connection"},
    {QSslError::CertificateExpired, "%1 has expired, on %2; the device needs a new one"},
    {QSslError::CertificateNotYetValid,
     "%1 is not valid before %2; check the clocks of both sides"},
    {QSslError::InvalidCaCertificate,
     "%1 is used as an authority's, and is none; the device needs one from an authority"},
    {QSslError::InvalidPurpose, "%1 is not meant for a server; the device needs another one"},
    {QSslError::HostNameMismatch, "%1 is for %2; if that is the device, name it so by 'tlsName'"},
    {QSslError::SelfSignedCertificate,
     "%1 is signed by itself; if that is the device, give its certificate as 'tlsCa'"},
    {QSslError::SelfSignedCertificateInChain,
     "%1 is that of an authority that is not believed; if it is to be, give it as 'tlsCa'"},
    {QSslError::UnableToGetLocalIssuerCertificate, unknownAuthority},
    {QSslError::UnableToVerifyFirstCertificate, unknownAuthority},
    {QSslError::UnableToGetIssuerCertificate, unknownAuthority},
    {QSslError::CertificateUntrusted, unknownAuthority},
    {QSslError::CertificateRevoked, "%1 has been revoked; the device needs a new one"},
    {QSslError::CertificateBlacklisted, "%1 is known to be false; the device needs a new one"},
}};

QString namesOf(const QSslCertificate& certificate)
{
    QStringList names = certificate.subjectAlternativeNames().values();
    if (names.isEmpty()) {
        names = certificate.subjectInfo(QSslCertificate::CommonName);
    }
    return names.isEmpty() ? QStringLiteral("nobody") : names.join(QLatin1String(", "));
}

QString detail(const QSslError& error)
{
    const QSslCertificate certificate = error.certificate();
    const auto date = [](const QDateTime& time) { return time.toUTC().toString(Qt::ISODate); };
    switch (error.error()) {
    case QSslError::CertificateExpired:
        return date(certificate.expiryDate());
    case QSslError::CertificateNotYetValid:
        return date(certificate.effectiveDate());
    default:
        return namesOf(certificate);
    }
}

QString subject(const QSslError& error, const QSslSocket& socket)
{
    const QSslCertificate certificate = error.certificate();
    return certificate.isNull() || certificate == socket.peerCertificate()
        ? QStringLiteral("the device's certificate")
        : QStringLiteral("the certificate of '%1'").arg(certificate.subjectDisplayName());
}

// Qt has no name for what OpenSSL says of weak keys.
QString unnamedTrouble(const QSslCertificate& certificate, const QString& said)
{
    constexpr int weakestRsa = 2048;
    const QSslKey key = certificate.publicKey();
    return key.algorithm() == QSsl::Rsa && key.length() < weakestRsa
        ? QStringLiteral("the device's certificate has a key that is too weak (%1 bits); the "
                         "device needs a new one")
              .arg(key.length())
        : QStringLiteral("the device's certificate is refused (%1); the device needs another one")
              .arg(said);
}

QString certificateTrouble(const QSslSocket& socket, const QList<QSslError>& errors)
{
    for (const Fault& fault : faults) {
        for (const QSslError& error : errors) {
            if (error.error() == fault.error) {
                const QString text = QLatin1String(fault.text);
                return text.contains(QLatin1String("%2"))
                    ? text.arg(subject(error, socket), detail(error))
                    : text.arg(subject(error, socket));
            }
        }
    }
    return unnamedTrouble(socket.peerCertificate(), errors.first().errorString());
}

constexpr const char* keyMismatch =
    "the private key does not belong to our certificate; give the key it was made with";
constexpr const char* refused = "the device refuses our certificate; give another one";

struct Alert
{
    const char* part; // of what OpenSSL says
    const char* text;
};

constexpr std::array<Alert, 12> alerts{{
    {"key too small", "the device's certificate has a key that is too weak; it needs a new one"},
    {"md too weak",
     "the device's certificate has a signature that is too weak; it needs a new one"},
    {"certificate required",
     "the device wants a certificate of ours; give it as 'tlsCert' and 'tlsKey'"},
    {"certify public key", keyMismatch},
    {"key values mismatch", keyMismatch},
    {"unknown ca", "the device does not know the authority of our certificate; give another one"},
    {"certificate expired", "the device says that our certificate has expired; give a new one"},
    {"bad certificate", refused},
    {"certificate unknown", refused},
    {"unsupported certificate", refused},
    {"wrong version number", "what answers does not speak TLS; check the port, or leave TLS out"},
    {"protocol version", "the device has no TLS 1.2 or newer; it needs an update"},
}};

} // namespace

QString tlsTrouble(const QSslSocket& socket)
{
    const QList<QSslError> errors = socket.sslHandshakeErrors();
    if (!errors.isEmpty() && !socket.isEncrypted()) {
        return certificateTrouble(socket, errors);
    }
    QString said = socket.errorString();
    const auto* alert = std::find_if(alerts.cbegin(), alerts.cend(), [&](const Alert& each) {
        return said.contains(QLatin1String(each.part), Qt::CaseInsensitive);
    });
    if (alert != alerts.cend()) {
        return QLatin1String(alert->text);
    }
    if (socket.error() == QAbstractSocket::RemoteHostClosedError) {
        return socket.isEncrypted() ? QStringLiteral("the device closed the connection")
                                    : QStringLiteral("the device closed the connection in the "
                                                     "TLS handshake; check that TLS is what it "
                                                     "speaks on this port");
    }
    return said;
}
