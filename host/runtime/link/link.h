#pragma once

#include <runtime/link/link_socket.h>
#include <runtime/link/name_lookup.h>
#include <runtime/link/serial/serial_line.h>
#include <runtime/link/tls_stream.h>
#include <runtime/loop/reactor.h>

/// The way to one device: looks its name up, connects, and tells what comes of it. At most one
/// socket at a time. When to open, and for how long to try, is for its owner to say.
class Link
{
public:
    /// What the link tells: from the event loop, from look(), and of an attempt that is over at
    /// once from open().
    struct Events
    {
        fastdelegate::Delegate<void> opened;
        fastdelegate::Delegate<void, const QString&> failed; ///< the attempt, and why
        fastdelegate::Delegate<void> readable; ///< there are bytes, or the link's end
    };

    Link(const Events& events, const LinkSocket::Watch& watch);
    ~Link();
    Q_DISABLE_COPY(Link)

    /// Secures every connection from the next attempt on; null: none.
    void setTls(std::unique_ptr<TlsSettings> settings) { m_tlsSettings = std::move(settings); }
    /// Goes by this serial line instead of a network from the next attempt on; null: it does not.
    void setSerial(const SerialSettings* settings);
    /// Begins an attempt; what there is of a link is closed first. It ends in opened or failed, or
    /// in close().
    void open(const QString& host, quint16 port);
    void close();
    /// Takes in what has happened already, before the event loop comes to it.
    void look();
    /// What an attempt that lasts too long waits for, behind "no answer within 5 s"; empty when
    /// that says all.
    QString missing() const;

    LinkSocket& socket() { return m_socket; }

private:
    void openSerial();
    void serialOpened();
    void found(const NameLookup::Result& result);
    void connectNext();
    bool startConnecting(const QHostAddress& address);
    void handleReady(quint32 events);
    void finishConnecting();
    void closeDescriptor();
    void secure();
    void shakeHands();
    void watchFor(bool more);

    Events m_events;
    bool m_isConnecting = false;
    bool m_isSecuring = false;
    LinkSocket m_socket;
    NameLookup m_lookup;
    std::shared_ptr<Reactor> m_reactor;
    std::unique_ptr<TlsSettings> m_tlsSettings;
    std::unique_ptr<TlsStream> m_tls;
    std::unique_ptr<SerialLine> m_serial;
    QString m_host;
    quint16 m_port = 0;
    QList<QHostAddress> m_addresses; ///< not tried yet
    QHostAddress m_address; ///< being tried
    QString m_trouble;
    int m_descriptor = -1;
};
