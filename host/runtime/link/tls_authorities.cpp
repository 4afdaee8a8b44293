#include <runtime/link/tls_authorities.h>

#include <runtime/link/certificate_path.h>

#include <QByteArray>
#include <QHostAddress>

#include <algorithm>
#include <iterator>
#include <mutex>

namespace {

using Certificate =
    std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, void (*)(gnutls_x509_crt_t)>;

constexpr unsigned checks = GNUTLS_PROFILE_TO_VFLAGS(GNUTLS_PROFILE_MEDIUM);

// Null when it is none.
Certificate certificateOf(const gnutls_datum_t& der)
{
    gnutls_x509_crt_t made = nullptr;
    gnutls_x509_crt_init(&made);
    Certificate certificate(made, gnutls_x509_crt_deinit);
    if (gnutls_x509_crt_import(made, &der, GNUTLS_X509_FMT_DER) < 0) {
        certificate.reset();
    }
    return certificate;
}

gnutls_typed_vdata_st expected(gnutls_vdata_types_t type, const QByteArray& text)
{
    // A constant is what it wants to have, and says otherwise.
    auto* data = reinterpret_cast<unsigned char*>(const_cast<char*>(text.constData()));
    return {type, data, static_cast<unsigned>(text.size())};
}

QByteArray addressBytes(const QHostAddress& address)
{
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        const quint32 ipv4 = address.toIPv4Address();
        QByteArray bytes;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.append(static_cast<char>(ipv4 >> shift & 0xFF));
        }
        return bytes;
    }
    const Q_IPV6ADDR ipv6 = address.toIPv6Address();
    return {reinterpret_cast<const char*>(ipv6.c), sizeof(ipv6.c)};
}

// Of what was shown, in whatever order, what leads from the first one to one that is believed.
CertificatePath pathOf(const std::vector<Certificate>& shown, gnutls_x509_trust_list_t believed)
{
    CertificatePath path{{shown.front().get()}, nullptr};
    std::size_t before = 0;
    while (path.shown.size() > before) {
        before = path.shown.size();
        gnutls_x509_crt_t last = path.shown.back();
        if (gnutls_x509_trust_list_get_issuer(believed, last, &path.anchor, 0)
            == GNUTLS_E_SUCCESS) {
            break;
        }
        path.anchor = nullptr;
        const auto next = std::find_if(shown.cbegin(), shown.cend(), [&](const auto& each) {
            return gnutls_x509_crt_check_issuer(last, each.get()) != 0
                && std::find(path.shown.cbegin(), path.shown.cend(), each.get())
                == path.shown.cend();
        });
        if (next != shown.cend()) {
            path.shown.push_back(next->get());
        }
    }
    return path;
}

unsigned status(CertificatePath& path, gnutls_x509_trust_list_t believed, const QString& name)
{
    const QHostAddress address(name);
    const QByteArray who = address.isNull() ? name.toUtf8() : addressBytes(address);
    const auto type = address.isNull() ? GNUTLS_DT_DNS_HOSTNAME : GNUTLS_DT_IP_ADDRESS;
    gnutls_typed_vdata_st wanted[] = {
        expected(type, who),
        expected(GNUTLS_DT_KEY_PURPOSE_OID, QByteArrayLiteral(GNUTLS_KP_TLS_WWW_SERVER))};
    unsigned status = 0;
    const int result = gnutls_x509_trust_list_verify_crt2(
        believed, path.shown.data(), static_cast<unsigned>(path.shown.size()), wanted,
        std::size(wanted), checks, &status, nullptr);
    if (result < 0) {
        status |= GNUTLS_CERT_INVALID;
    }
    // What it does not look at: the key of one that is believed itself, and "for anything".
    gnutls_x509_crt_t leaf = path.shown.front();
    if (CertificatePath::hasWeakKey(leaf)) {
        status |= GNUTLS_CERT_INSECURE_ALGORITHM;
    }
    if (!CertificatePath::isForServer(leaf)) {
        status |= GNUTLS_CERT_PURPOSE_MISMATCH;
    }
    return status;
}

} // namespace

TlsAuthorities::TlsAuthorities()
    : m_list(nullptr, [](gnutls_x509_trust_list_t list) { gnutls_x509_trust_list_deinit(list, 1); })
{
    gnutls_x509_trust_list_t list = nullptr;
    gnutls_x509_trust_list_init(&list, 0);
    m_list.reset(list);
}

std::shared_ptr<const TlsAuthorities> TlsAuthorities::ofSystem()
{
    static std::mutex guard;
    static std::weak_ptr<const TlsAuthorities> known;
    const std::lock_guard<std::mutex> lock(guard);
    std::shared_ptr<const TlsAuthorities> authorities = known.lock();
    if (!authorities) {
        const std::shared_ptr<TlsAuthorities> made(new TlsAuthorities);
        gnutls_x509_trust_list_add_system_trust(made->m_list.get(), 0, 0);
        authorities = made;
        known = authorities;
    }
    return authorities;
}

std::shared_ptr<const TlsAuthorities> TlsAuthorities::of(const QByteArray& pem)
{
    const gnutls_datum_t data{reinterpret_cast<unsigned char*>(const_cast<char*>(pem.constData())),
                              static_cast<unsigned>(pem.size())};
    const std::shared_ptr<TlsAuthorities> made(new TlsAuthorities);
    const int count = gnutls_x509_trust_list_add_trust_mem(made->m_list.get(), &data, nullptr,
                                                           GNUTLS_X509_FMT_PEM, 0, 0);
    return count > 0 ? made : nullptr;
}

QString TlsAuthorities::objection(const std::vector<gnutls_datum_t>& chain,
                                  const QString& name) const
{
    std::vector<Certificate> shown;
    std::transform(chain.cbegin(), chain.cend(), std::back_inserter(shown), certificateOf);
    if (shown.empty() || std::find(shown.cbegin(), shown.cend(), nullptr) != shown.cend()) {
        return QStringLiteral("what the device shows is no certificate; it needs another one");
    }
    CertificatePath path = pathOf(shown, m_list.get());
    if (path.shown.size() > 1 && path.anchor == nullptr && has(path.shown.front())) {
        path.shown.resize(1); // who is believed needs no issuer
    }
    const unsigned found = status(path, m_list.get(), name);
    return found == 0 ? QString() : path.trouble(found);
}

bool TlsAuthorities::has(gnutls_x509_crt_t certificate) const
{
    gnutls_x509_trust_list_iter_t at = nullptr;
    gnutls_x509_crt_t each = nullptr;
    bool isFound = false;
    while (!isFound
           && gnutls_x509_trust_list_iter_get_ca(m_list.get(), &at, &each) == GNUTLS_E_SUCCESS) {
        isFound = gnutls_x509_crt_equals(each, certificate) != 0;
        gnutls_x509_crt_deinit(each);
    }
    gnutls_x509_trust_list_iter_deinit(at);
    return isFound;
}
