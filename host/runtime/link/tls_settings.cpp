#include <runtime/link/tls_settings.h>

#include <QFile>

#include <openssl/err.h>

namespace {

// Without it OpenSSL would ask at the terminal for the passphrase of a key.
int giveNoPassphrase(char*, int, int, void*) { return 0; }

QString obstacle(const char* option, const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly)
        ? QString()
        : QStringLiteral("%1: cannot read '%2': %3")
              .arg(QLatin1String(option), name, file.errorString());
}

QString unusable(const char* option, const QString& name, const char* what)
{
    return QStringLiteral("%1: '%2' holds no %3")
        .arg(QLatin1String(option), name, QLatin1String(what));
}

QString loadAuthorities(SSL_CTX* context, const QString& name)
{
    if (name.isEmpty()) {
        SSL_CTX_set_default_verify_paths(context);
        return {};
    }
    // Whoever is named is believed, and need not be a root.
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context), X509_V_FLAG_PARTIAL_CHAIN);
    QString trouble = obstacle("tlsCa", name);
    if (trouble.isEmpty()
        && SSL_CTX_load_verify_file(context, QFile::encodeName(name).constData()) != 1) {
        trouble = unusable("tlsCa", name, "certificate in PEM form");
    }
    return trouble;
}

QString loadIdentity(SSL_CTX* context, const QString& certificate, const QString& key)
{
    QString trouble = obstacle("tlsCert", certificate);
    if (trouble.isEmpty()) {
        trouble = obstacle("tlsKey", key);
    }
    if (!trouble.isEmpty()) {
        return trouble;
    }
    const QByteArray certificateFile = QFile::encodeName(certificate);
    const QByteArray keyFile = QFile::encodeName(key);
    if (SSL_CTX_use_certificate_chain_file(context, certificateFile.constData()) != 1) {
        return unusable("tlsCert", certificate, "certificate in PEM form");
    }
    const bool isTaken =
        SSL_CTX_use_PrivateKey_file(context, keyFile.constData(), SSL_FILETYPE_PEM) == 1;
    if (isTaken) {
        return {};
    }
    const bool isAnothers = ERR_GET_LIB(ERR_peek_last_error()) == ERR_LIB_X509;
    return isAnothers
        ? QStringLiteral("tlsKey: '%1' is not the private key of '%2'").arg(key, certificate)
        : unusable("tlsKey", key, "private key in PEM form without a passphrase");
}

} // namespace

QString TlsSettings::load(const LinkOptions& options)
{
    ERR_clear_error();
    context.reset(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!context) {
        return QStringLiteral("tls: there is no memory for it");
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_default_passwd_cb(context.get(), giveNoPassphrase);
    name = options.tlsName;
    QString trouble = loadAuthorities(context.get(), options.tlsCa);
    if (trouble.isEmpty() && !options.tlsCert.isEmpty()) {
        trouble = loadIdentity(context.get(), options.tlsCert, options.tlsKey);
    }
    ERR_clear_error();
    return trouble;
}
