#pragma once

#include <QString>

#include <gnutls/x509.h>

#include <vector>

/// The way from a certificate to an authority that is believed. It owns none of them.
struct CertificatePath
{
    std::vector<gnutls_x509_crt_t>
        shown; ///< by the other side; its own first, then each one's issuer
    gnutls_x509_crt_t anchor = nullptr; ///< the last one's issuer, which is believed; null: none is

    gnutls_x509_crt_t issuerOf(std::size_t depth) const
    {
        return depth + 1 < shown.size() ? shown[depth + 1] : anchor;
    }

    /// Why it is refused, in words: whose certificate is wrong and how, and what to do about it.
    /// \a status: of GNUTLS_CERT_*.
    QString trouble(unsigned status) const;

    /// Keys and signatures must be as hard to break as 112 bits: RSA of 2048 bits, SHA-2.
    static bool hasWeakKey(gnutls_x509_crt_t certificate);
    /// It may be a server's, and that is said by name where it says for what it is.
    static bool isForServer(gnutls_x509_crt_t certificate);
};
