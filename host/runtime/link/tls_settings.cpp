#include <runtime/link/tls_settings.h>

#include <QFile>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

namespace {

QString unreadable(const char* option, const QFile& file)
{
    return QStringLiteral("%1: cannot read '%2': %3")
        .arg(QLatin1String(option), file.fileName(), file.errorString());
}

QString readCertificates(const char* option, const QString& name, QList<QSslCertificate>& into)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        return unreadable(option, file);
    }
    into = QSslCertificate::fromDevice(&file, QSsl::Pem);
    return into.isEmpty() ? QStringLiteral("%1: '%2' holds no certificate in PEM form")
                                .arg(QLatin1String(option), name)
                          : QString();
}

QString readKey(const QString& name, QSslKey& key)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        return unreadable("tlsKey", file);
    }
    const QByteArray pem = file.readAll();
    for (const QSsl::KeyAlgorithm algorithm : {QSsl::Rsa, QSsl::Ec, QSsl::Dsa}) {
        key = QSslKey(pem, algorithm);
        if (!key.isNull()) {
            return {};
        }
    }
    const bool isLocked = pem.contains("ENCRYPTED");
    return QStringLiteral("tlsKey: '%1' holds no private key in PEM form%2")
        .arg(name, QLatin1String(isLocked ? " without a passphrase" : ""));
}

QString readIdentity(const LinkOptions& options, QSslConfiguration& configuration)
{
    QList<QSslCertificate> chain;
    QSslKey key;
    QString trouble = readCertificates("tlsCert", options.tlsCert, chain);
    if (trouble.isEmpty()) {
        trouble = readKey(options.tlsKey, key);
    }
    configuration.setLocalCertificateChain(chain);
    configuration.setPrivateKey(key);
    return trouble;
}

} // namespace

QString TlsSettings::load(const LinkOptions& options)
{
    if (!QSslSocket::supportsSsl()) {
        return QStringLiteral("tls: no OpenSSL library is installed that fits this program");
    }
    configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_2OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    name = options.tlsName;
    QString trouble;
    if (!options.tlsCa.isEmpty()) {
        QList<QSslCertificate> authorities;
        trouble = readCertificates("tlsCa", options.tlsCa, authorities);
        configuration.setCaCertificates(authorities);
    }
    if (trouble.isEmpty() && !options.tlsCert.isEmpty()) {
        trouble = readIdentity(options, configuration);
    }
    return trouble;
}
