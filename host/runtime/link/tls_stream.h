#pragma once

#include <runtime/link/stream.h>
#include <runtime/link/tls_settings.h>
#include <runtime/link/tls_wire.h>

#include <plugin_management/fast_delegate.h>

#include <gnutls/gnutls.h>

#include <memory>
#include <type_traits>

/// A TCP connection secured by TLS 1.2 or newer, whose other side has shown a certificate that is
/// believed. Who owns it watches its descriptor: it calls nobody but to say for what.
///
/// Directly on GnuTLS, as an order then costs little more than without: of one over OpenSSL 3.0
/// most was for how that one finds its ciphers, and through Qt's own socket it cost more than twice
/// as much processor time.
class TlsStream final : public Stream
{
public:
    /// Told when there is more to take (true) although the descriptor may not be ready to read, and
    /// when there is not.
    using More = fastdelegate::Delegate<void, bool>;

    /// \a descriptor is connected to \a host, and stays its owner's.
    TlsStream(int descriptor, const QString& host, const TlsSettings& settings, const More& more);
    ~TlsStream() override;
    Q_DISABLE_COPY(TlsStream)

    enum class Handshake { Under, Done, Failed };
    /// Goes on with the handshake as far as what has arrived allows.
    Handshake shakeHands();
    /// There is more to take although the descriptor may not be ready to read.
    bool hasMore() const { return m_hasMore; }
    /// Tells the other side that nothing more comes.
    void end();

    qint64 receive(char* data, qint64 size) override;
    qint64 send(const char* data, qint64 size) override;
    qint64 waiting() const override;
    QString trouble() const override { return m_trouble; }

private:
    static int verify(gnutls_session_t session);
    void setUp(gnutls_session_t session);
    int handshake();
    ssize_t takeRecord(char* data, std::size_t size);
    ssize_t takeData(char* data, std::size_t size);
    bool isWithinRecord() const;
    bool isOver(ssize_t result);
    void tellMore();

    TlsWire m_wire;
    bool m_hasMore = false;
    bool m_isReady = false; ///< hands were shaken
    bool m_isShaking = false; ///< again, as the other side wants it
    More m_more;
    TlsSettings m_settings;
    QString m_name;
    std::unique_ptr<std::remove_pointer_t<gnutls_session_t>, void (*)(gnutls_session_t)> m_session;
    QString m_trouble;
};
