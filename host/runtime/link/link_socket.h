#pragma once

#include <runtime/link/stream.h>
#include <runtime/link/translation.h>

#include <plugin_management/fast_delegate.h>

#include <QAbstractSocket>

#include <memory>

/// A connected TCP socket without buffers: what is written leaves within the write, what has
/// arrived is fetched by the read. One object serves all connections of a link, one after the
/// other.
///
/// What is read before anything was written to a request is stale: nothing asked for it, and what
/// is written then goes nowhere, as the request must leave on a new connection. No more than one
/// buffer of it is ever read. It ends without a signal: reading or writing finds the end, and the
/// state tells of it.
class LinkSocket : public QAbstractSocket
{
    Q_OBJECT

public:
    /// What passes the socket.
    struct Watch
    {
        fastdelegate::Delegate<void, int> drained; ///< bytes that a worker function read before
        /// Bytes of replies that are another's, and how many replies.
        fastdelegate::Delegate<void, int, int> dropped;
        fastdelegate::Delegate<void, const char*, int> written; ///< by a worker function, and left
        /// What leaves (true) or arrives, as it goes over the wire.
        fastdelegate::Delegate<void, bool, const char*, int> passed;
    };

    explicit LinkSocket(const Watch& watch);
    ~LinkSocket() override;

    void setWatch(const Watch& watch) { m_watch = watch; }
    /// What stands between the worker and the wire; null: nothing. Not while there is a connection.
    void setTranslation(std::unique_ptr<Translation> translation);
    /// Takes \a descriptor over, which is connected to \a peer.
    void adopt(int descriptor, const QString& peerName, const QHostAddress& peer, quint16 port);
    /// Goes by \a stream from here on, to which the peer's descriptor was handed; it must outlive
    /// the connection.
    void adopt(Stream& stream, const QString& peerName, const QHostAddress& peer, quint16 port);
    /// Closes the connection; the object can adopt another.
    void end();
    /// A worker function begins: what it reads from here on answers nothing that it has written.
    void beginRequest();
    /// Another worker asks from here on, and this unit, where a translation says that.
    void beginTurn(int unit);
    /// A late reply is never taken for another one's.
    bool tellsRepliesApart() const;
    /// Nobody waits for a reply any more.
    void endRequest();
    /// Takes what has arrived, for whoever runs the link.
    qint64 receive(char* data, qint64 size);

    /// Not as a socket, and only for readAll(): of a device that is not sequential it asks for the
    /// size first, and allocates nothing when that tells that there is nothing. Else it allocates
    /// 16 kB each time, at which malloc merges what is free: 11,000 of 44,000 instructions of an
    /// order for 63 registers.
    bool isSequential() const override { return false; }
    /// Drops what waits before a request, and tells then that there is nothing.
    qint64 size() const override;

    qintptr socketDescriptor() const override { return m_descriptor; }
    qint64 bytesAvailable() const override;
    void disconnectFromHost() override;
    bool waitForReadyRead(int limitMs) override;
    bool waitForBytesWritten(int limitMs) override;
    bool waitForDisconnected(int limitMs) override;

protected:
    qint64 readData(char* data, qint64 size) override;
    qint64 writeData(const char* data, qint64 size) override;

private:
    qint64 receiveRaw(char* data, qint64 size);
    qint64 receiveTranslated(char* data, qint64 size);
    bool translateMore();
    qint64 sendRaw(const char* data, qint64 size);
    qint64 sendTranslated(const char* data, qint64 size);
    bool mustFindNothing() const;
    bool isTlsAlert(const char* data, qint64 size);
    void failBySystem(int error);
    void fail(SocketError error, const QString& why);

    void begin(const QString& peerName, const QHostAddress& peer, quint16 port);
    qint64 receiveFrom(Stream& stream, char* data, qint64 size);
    qint64 sendBy(Stream& stream, const char* data, qint64 size);

    Watch m_watch;
    int m_descriptor = -1;
    bool m_hasWritten = false;
    bool m_isStale = false;
    bool m_hasReceived = false; ///< on this connection
    Stream* m_stream = nullptr; ///< in the descriptor's place
    std::unique_ptr<Translation> m_translation;
    QByteArray m_translated; ///< not taken yet
};
