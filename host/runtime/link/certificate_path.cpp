#include <runtime/link/certificate_path.h>

#include <QDateTime>
#include <QHostAddress>
#include <QStringList>

#include <algorithm>
#include <array>
#include <ctime>

namespace {

QString date(time_t time)
{
    return QDateTime::fromSecsSinceEpoch(time, Qt::UTC).toString(Qt::ISODate);
}

QString commonName(gnutls_x509_crt_t certificate)
{
    std::array<char, 256> text{};
    std::size_t size = text.size();
    const int result = gnutls_x509_crt_get_dn_by_oid(certificate, GNUTLS_OID_X520_COMMON_NAME, 0, 0,
                                                     text.data(), &size);
    return result == GNUTLS_E_SUCCESS ? QString::fromUtf8(text.data(), static_cast<int>(size))
                                      : QString();
}

QString address(const char* data, std::size_t size)
{
    constexpr std::size_t ipv4Size = 4;
    const auto* bytes = reinterpret_cast<const quint8*>(data);
    return size == ipv4Size
        ? QStringLiteral("%1.%2.%3.%4").arg(bytes[0]).arg(bytes[1]).arg(bytes[2]).arg(bytes[3])
        : QHostAddress(bytes).toString();
}

QString namesOf(gnutls_x509_crt_t certificate)
{
    QStringList names;
    std::array<char, 256> text{};
    for (unsigned i = 0;; ++i) {
        std::size_t size = text.size();
        const int type =
            gnutls_x509_crt_get_subject_alt_name(certificate, i, text.data(), &size, nullptr);
        if (type == GNUTLS_SAN_DNSNAME) {
            names.append(QString::fromUtf8(text.data(), static_cast<int>(size)));
        } else if (type == GNUTLS_SAN_IPADDRESS) {
            names.append(address(text.data(), size));
        } else if (type < 0 && type != GNUTLS_E_SHORT_MEMORY_BUFFER) {
            break;
        }
    }
    return names.isEmpty() ? commonName(certificate) : names.join(QLatin1String(", "));
}

// What can be wrong with a certificate of a path.

bool isOfNobody(const CertificatePath& path, std::size_t depth)
{
    return path.issuerOf(depth) == nullptr;
}

bool isItsOwn(const CertificatePath& path, std::size_t depth)
{
    return isOfNobody(path, depth)
        && gnutls_x509_crt_check_issuer(path.shown[depth], path.shown[depth]) != 0;
}

bool isLeafOfItsOwn(const CertificatePath& path, std::size_t depth)
{
    return depth == 0 && isItsOwn(path, depth);
}

bool isNoAuthority(const CertificatePath& path, std::size_t depth)
{
    unsigned usage = 0;
    const bool hasUsage =
        gnutls_x509_crt_get_key_usage(path.shown[depth], &usage, nullptr) == GNUTLS_E_SUCCESS;
    return depth > 0
        && (gnutls_x509_crt_get_ca_status(path.shown[depth], nullptr) <= 0
            || (hasUsage && (usage & GNUTLS_KEY_KEY_CERT_SIGN) == 0));
}

bool isForNoServer(const CertificatePath& path, std::size_t depth)
{
    return !CertificatePath::isForServer(path.shown[depth]);
}

bool hasWeakKeyAt(const CertificatePath& path, std::size_t depth)
{
    return CertificatePath::hasWeakKey(path.shown[depth]);
}

bool hasWeakSignature(const CertificatePath& path, std::size_t depth)
{
    const int algorithm = gnutls_x509_crt_get_signature_algorithm(path.shown[depth]);
    return algorithm < 0
        || gnutls_sign_is_secure2(static_cast<gnutls_sign_algorithm_t>(algorithm),
                                  GNUTLS_SIGN_FLAG_SECURE_FOR_CERTS)
        == 0;
}

bool isLeaf(const CertificatePath&, std::size_t depth) { return depth == 0; }

bool isAltered(const CertificatePath& path, std::size_t depth)
{
    gnutls_x509_crt_t issuer = path.issuerOf(depth);
    unsigned status = 0;
    return issuer != nullptr
        && gnutls_x509_crt_verify(path.shown[depth], &issuer, 1, 0, &status) == GNUTLS_E_SUCCESS
        && (status & GNUTLS_CERT_SIGNATURE_FAILURE) != 0;
}

bool isEarly(const CertificatePath& path, std::size_t depth)
{
    return gnutls_x509_crt_get_activation_time(path.shown[depth]) > ::time(nullptr);
}

bool isLate(const CertificatePath& path, std::size_t depth)
{
    return gnutls_x509_crt_get_expiration_time(path.shown[depth]) < ::time(nullptr);
}

struct Fault
{
    unsigned status; // in which it shows
    bool (*isAt)(const CertificatePath& path, std::size_t depth);
    const char* text; // %1: whose certificate; %2: its end, begin or names, as the error has it
};

// What is told when there is more than one: whom to believe comes first, and when last.
constexpr std::array<Fault, 11> faults{{
    {GNUTLS_CERT_SIGNER_NOT_FOUND, isLeafOfItsOwn,
     "%1 is signed by itself; if that is the device, give its certificate as 'tlsCa'"},
    {GNUTLS_CERT_SIGNER_NOT_FOUND, isItsOwn,
     "%1 is that of an authority that is not believed; if it is to be, give it as 'tlsCa'"},
    {GNUTLS_CERT_SIGNER_NOT_FOUND, isOfNobody,
     "%1 comes from an authority that is not known here; give that one's certificate as 'tlsCa'"},
    {GNUTLS_CERT_SIGNER_NOT_CA | GNUTLS_CERT_SIGNER_CONSTRAINTS_FAILURE, isNoAuthority,
     "%1 is used as an authority's, and is none; the device needs one from an authority"},
    {GNUTLS_CERT_PURPOSE_MISMATCH, isForNoServer,
     "%1 is not meant for a server; the device needs another one"},
    {GNUTLS_CERT_INSECURE_ALGORITHM, hasWeakKeyAt,
     "%1 has a key that is too weak; the device needs a new one"},
    {GNUTLS_CERT_INSECURE_ALGORITHM, hasWeakSignature,
     "%1 has a signature that is too weak; the device needs a new one"},
    {GNUTLS_CERT_UNEXPECTED_OWNER, isLeaf,
     "%1 is for %2; if that is the device, name it so by 'tlsName'"},
    {GNUTLS_CERT_SIGNATURE_FAILURE, isAltered,
     "%1 has a wrong signature, it was altered; do not trust this connection"},
    {GNUTLS_CERT_NOT_ACTIVATED, isEarly,
     "%1 is not valid before %2; check the clocks of both sides"},
    {GNUTLS_CERT_EXPIRED, isLate, "%1 has expired, on %2; the device needs a new one"},
}};

QString detail(unsigned status, gnutls_x509_crt_t certificate)
{
    switch (status) {
    case GNUTLS_CERT_EXPIRED:
        return date(gnutls_x509_crt_get_expiration_time(certificate));
    case GNUTLS_CERT_NOT_ACTIVATED:
        return date(gnutls_x509_crt_get_activation_time(certificate));
    default:
        return namesOf(certificate);
    }
}

QString whose(gnutls_x509_crt_t certificate, std::size_t depth)
{
    return depth == 0 ? QStringLiteral("the device's certificate")
                      : QStringLiteral("the certificate of '%1'").arg(commonName(certificate));
}

QString other(unsigned status)
{
    gnutls_datum_t text{nullptr, 0};
    gnutls_certificate_verification_status_print(status, GNUTLS_CRT_X509, &text, 0);
    QString reason =
        QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.size));
    gnutls_free(text.data);
    reason = reason.section(QLatin1Char('.'), -2, -2).trimmed(); // the last sentence is the reason
    return QStringLiteral("the device's certificate is refused (%1); the device needs another one")
        .arg(reason);
}

} // namespace

QString CertificatePath::trouble(unsigned status) const
{
    CertificatePath all = *this;
    if (anchor != nullptr) {
        all.shown.push_back(anchor);
    }
    for (const Fault& fault : faults) {
        for (std::size_t depth = 0; (status & fault.status) != 0 && depth < all.shown.size();
             ++depth) {
            if (fault.isAt(all, depth)) {
                const QString text = QLatin1String(fault.text);
                const QString of = whose(all.shown[depth], depth);
                return text.contains(QLatin1String("%2"))
                    ? text.arg(of, detail(fault.status, all.shown[depth]))
                    : text.arg(of);
            }
        }
    }
    return other(status);
}

bool CertificatePath::hasWeakKey(gnutls_x509_crt_t certificate)
{
    unsigned bits = 0;
    const int algorithm = gnutls_x509_crt_get_pk_algorithm(certificate, &bits);
    return algorithm < 0
        || gnutls_pk_bits_to_sec_param(static_cast<gnutls_pk_algorithm_t>(algorithm), bits)
        < GNUTLS_SEC_PARAM_MEDIUM;
}

bool CertificatePath::isForServer(gnutls_x509_crt_t certificate)
{
    constexpr unsigned ofServers =
        GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_KEY_ENCIPHERMENT | GNUTLS_KEY_KEY_AGREEMENT;
    unsigned usage = ofServers; // where nothing is said of it
    gnutls_x509_crt_get_key_usage(certificate, &usage, nullptr);
    return (usage & ofServers) != 0
        && gnutls_x509_crt_check_key_purpose(certificate, GNUTLS_KP_TLS_WWW_SERVER,
                                             GNUTLS_KP_FLAG_DISALLOW_ANY)
        != 0;
}
