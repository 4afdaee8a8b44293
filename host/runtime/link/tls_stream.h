#pragma once

#include <runtime/link/stream.h>
#include <runtime/link/tls_settings.h>

#include <plugin_management/fast_delegate.h>

#include <QObject>

class QSslSocket;

/// A TCP connection secured by TLS 1.2 or newer, whose other side has shown a certificate that is
/// believed. Qt's socket below has buffers, bounded, and watches its descriptor by itself; nothing
/// of it calls us out of its own calls, so it may be ended at any time.
class TlsStream final : public QObject, public Stream
{
    Q_OBJECT

public:
    struct Events
    {
        fastdelegate::Delegate<void> secured; ///< the handshake is over, all is well
        fastdelegate::Delegate<void> readable; ///< there are bytes, or an end, or no handshake
    };

    explicit TlsStream(const Events& events);
    ~TlsStream() override;
    /// Closes the connection, tells nothing any more, and goes once nothing of it is at work.
    void end();

    /// Takes \a descriptor over, which is connected to \a host, and begins the handshake.
    void start(int descriptor, const QString& host, const TlsSettings& settings);
    /// Takes in what has arrived, before the event loop comes to it.
    void look();
    bool hasEnded() const { return m_hasEnded; }

    qint64 receive(char* data, qint64 size) override;
    qint64 send(const char* data, qint64 size) override;
    qint64 waiting() const override;
    QString trouble() const override { return m_trouble; }

private:
    void watch();
    bool hasArrived() const;
    void noteEnd();
    void tell();

    Events m_events;
    QSslSocket* m_socket; ///< a child
    bool m_isSecured = false;
    bool m_hasEnded = false;
    bool m_isGone = false;
    QString m_trouble;
};
