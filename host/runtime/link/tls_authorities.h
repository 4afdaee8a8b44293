#pragma once

#include <QString>

#include <gnutls/x509.h>

#include <memory>
#include <type_traits>
#include <vector>

/// Whose certificates are believed, and what is shown by them. Many connections may use one, also
/// of several threads.
class TlsAuthorities
{
public:
    /// Those of the system. They are read once as long as somebody uses them.
    static std::shared_ptr<const TlsAuthorities> ofSystem();
    /// Those of \a pem, whether or not they are roots; null when there is no certificate in it.
    static std::shared_ptr<const TlsAuthorities> of(const QByteArray& pem);

    /// Why a server called \a name is not believed that shows \a chain, its own certificate first;
    /// empty: it is. With what to do about it, for people.
    QString objection(const std::vector<gnutls_datum_t>& chain, const QString& name) const;

private:
    TlsAuthorities();

    bool has(gnutls_x509_crt_t certificate) const;

    std::unique_ptr<std::remove_pointer_t<gnutls_x509_trust_list_t>,
                    void (*)(gnutls_x509_trust_list_t)>
        m_list;
};
