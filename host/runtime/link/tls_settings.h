#pragma once

#include <runtime/link/tls_authorities.h>

#include <plugin_management/link_options.h>

#include <QString>

#include <gnutls/gnutls.h>

#include <memory>
#include <type_traits>

/// What TLS needs to know before it begins: whom to believe, who we are, and how the other side is
/// called. Read once, so that what is wrong with a file is told before anything is tried.
struct TlsSettings
{
    std::shared_ptr<std::remove_pointer_t<gnutls_priority_t>> versions; ///< and ciphers
    std::shared_ptr<const TlsAuthorities> authorities;
    std::shared_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>> identity;
    QString name; ///< that the device's certificate must have; empty: the host's

    /// Reads what \a options name. Why that cannot be, with the option's name; empty when all is
    /// well. Nothing of a key is ever told.
    QString load(const LinkOptions& options);
};
