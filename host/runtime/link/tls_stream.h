#pragma once

#include <runtime/link/stream.h>
#include <runtime/link/tls_settings.h>

#include <plugin_management/fast_delegate.h>

#include <array>
#include <memory>

/// A TCP connection secured by TLS 1.2 or newer, whose other side has shown a certificate that is
/// believed. Who owns it watches its descriptor: it calls nobody but to say for what.
///
/// Directly on OpenSSL, as an order then costs little more than without: through Qt's own socket
/// it cost more than twice as much processor time, most of it for turns of the event loop.
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
    struct Bio;
    friend struct Bio;

    bool isWithinRecord() const;
    bool isOverBySystem(int error);
    bool isOver(int result);
    void tellMore();

    int m_descriptor;
    std::array<char, 4096> m_arrived; ///< off the wire, and not decrypted yet
    int m_first = 0; ///< of them
    int m_end = 0;
    bool m_hasMore = false;
    More m_more;
    std::shared_ptr<SSL_CTX> m_context;
    std::unique_ptr<SSL, void (*)(SSL*)> m_ssl;
    QString m_trouble;
};
