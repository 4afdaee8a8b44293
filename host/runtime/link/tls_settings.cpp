#include <runtime/link/tls_settings.h>

#include <QFile>

#include <gnutls/x509.h>

#include <utility>
#include <vector>

namespace {

// As hard to break as 112 bits, and no attack by a second handshake: RFC 5746.
constexpr const char* wanted =
    "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-SIGN-RSA-SHA1:-SIGN-ECDSA-SHA1"
    ":%SAFE_RENEGOTIATION:%PROFILE_MEDIUM";

/// What a file holds, and nothing is left of it in memory.
class Pem
{
public:
    ~Pem() { gnutls_memset(m_text.data(), 0, static_cast<std::size_t>(m_text.size())); }
    Pem() = default;
    Q_DISABLE_COPY(Pem)

    // Why it cannot be read.
    QString read(const char* option, const QString& name)
    {
        QFile file(name);
        if (file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
            m_text = file.readAll();
            return {};
        }
        return QStringLiteral("%1: cannot read '%2': %3")
            .arg(QLatin1String(option), name, file.errorString());
    }

    const QByteArray& text() const { return m_text; }
    gnutls_datum_t from(int place)
    {
        return {reinterpret_cast<unsigned char*>(m_text.data()) + place,
                static_cast<unsigned>(m_text.size() - place)};
    }

private:
    QByteArray m_text;
};

/// Certificates of our own, and a key.
class Identity
{
public:
    Identity() { gnutls_x509_privkey_init(&m_key); }
    ~Identity()
    {
        for (unsigned i = 0; i < m_count; ++i) {
            gnutls_x509_crt_deinit(m_certificates[i]);
        }
        gnutls_free(m_certificates);
        gnutls_x509_privkey_deinit(m_key);
    }
    Q_DISABLE_COPY(Identity)

    bool loadCertificates(Pem& pem)
    {
        const gnutls_datum_t data = pem.from(0);
        return gnutls_x509_crt_list_import2(&m_certificates, &m_count, &data, GNUTLS_X509_FMT_PEM,
                                            0)
            >= 0;
    }

    // There may be other things in front of a key.
    bool loadKey(Pem& pem)
    {
        int result = GNUTLS_E_NO_CERTIFICATE_FOUND;
        for (int at = 0; result < 0 && (at = pem.text().indexOf("-----BEGIN ", at)) >= 0; ++at) {
            const gnutls_datum_t data = pem.from(at);
            result = gnutls_x509_privkey_import(m_key, &data, GNUTLS_X509_FMT_PEM);
        }
        return result >= 0;
    }

    bool giveTo(gnutls_certificate_credentials_t credentials) const
    {
        return gnutls_certificate_set_x509_key(credentials, m_certificates,
                                               static_cast<int>(m_count), m_key)
            >= 0;
    }

private:
    gnutls_x509_crt_t* m_certificates = nullptr;
    unsigned m_count = 0;
    gnutls_x509_privkey_t m_key = nullptr;
};

QString unusable(const char* option, const QString& name, const char* what)
{
    return QStringLiteral("%1: '%2' holds no %3")
        .arg(QLatin1String(option), name, QLatin1String(what));
}

QString loadAuthorities(const QString& name, std::shared_ptr<const TlsAuthorities>& authorities)
{
    if (name.isEmpty()) {
        authorities = TlsAuthorities::ofSystem();
        return {};
    }
    Pem pem;
    QString trouble = pem.read("tlsCa", name);
    if (!trouble.isEmpty()) {
        return trouble;
    }
    authorities = TlsAuthorities::of(pem.text());
    return authorities ? QString() : unusable("tlsCa", name, "certificate in PEM form");
}

QString loadIdentity(gnutls_certificate_credentials_t credentials, const QString& certificate,
                     const QString& key)
{
    Pem ours;
    Pem secret;
    QString trouble = ours.read("tlsCert", certificate);
    if (trouble.isEmpty()) {
        trouble = secret.read("tlsKey", key);
    }
    if (!trouble.isEmpty()) {
        return trouble;
    }
    Identity identity;
    if (!identity.loadCertificates(ours)) {
        return unusable("tlsCert", certificate, "certificate in PEM form");
    }
    if (!identity.loadKey(secret)) {
        return unusable("tlsKey", key, "private key in PEM form without a passphrase");
    }
    return identity.giveTo(credentials)
        ? QString()
        : QStringLiteral("tlsKey: '%1' is not the private key of '%2'").arg(key, certificate);
}

} // namespace

QString TlsSettings::load(const LinkOptions& options)
{
    gnutls_priority_t priority = nullptr;
    gnutls_certificate_credentials_t credentials = nullptr;
    if (gnutls_priority_init(&priority, wanted, nullptr) < 0
        || gnutls_certificate_allocate_credentials(&credentials) < 0) {
        gnutls_priority_deinit(priority);
        return QStringLiteral("tls: there is no memory for it");
    }
    versions.reset(priority, gnutls_priority_deinit);
    identity.reset(credentials, gnutls_certificate_free_credentials);
    name = options.tlsName;
    QString trouble = loadAuthorities(options.tlsCa, authorities);
    if (trouble.isEmpty() && !options.tlsCert.isEmpty()) {
        trouble = loadIdentity(credentials, options.tlsCert, options.tlsKey);
    }
    return trouble;
}
