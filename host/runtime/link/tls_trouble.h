#pragma once

#include <QString>

#include <openssl/ssl.h>

/// Why there is no secured connection, in words: whose certificate is wrong and how, or what else
/// the two sides could not agree on; and what to do about it.
namespace TlsTrouble {

/// From here on \a trouble, which must live as long, tells what is wrong with the certificates that
/// the other side shows; they are refused then.
void watchCertificates(SSL* ssl, QString& trouble);
/// Why the last call has failed; \a error is SSL_get_error()'s.
QString text(const SSL& ssl, int error);

} // namespace TlsTrouble
