#pragma once

#include <QString>

#include <gnutls/gnutls.h>

/// Why there is no secured connection, where it is not for a certificate of the other side: what
/// the two could not agree on, and what to do about it.
struct TlsTrouble
{
    int error = 0; ///< that GnuTLS has told
    int systemError = 0; ///< of the last call that sent or received
    bool isForeign = false; ///< what has come is not TLS
    bool isReady = false; ///< there was a secured connection before

    QString text(gnutls_session_t session) const;

private:
    QString closed() const;
};
