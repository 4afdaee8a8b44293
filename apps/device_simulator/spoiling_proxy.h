#pragma once

#include "reply_spoiler.h"

#include <QObject>

#include <functional>

/// Stands between the clients and a well-behaved server, and spoils its replies.
///
/// Each client gets a connection of its own to the server; requests pass untouched, replies are cut
/// by their length field.
class SpoilingProxy : public QObject
{
    Q_OBJECT

public:
    using Log = std::function<void(const QString&)>;

    /// \a serverPort is that of the server on the loopback address. \a log gets a line for every
    /// spoiled reply.
    SpoilingProxy(const Misbehaviour& misbehaviour, quint16 serverPort, Log log);

    /// False, with the reason in errorString(), when it cannot listen there.
    bool listen(const QHostAddress& address, quint16 port);
    quint16 port() const { return m_spoiler.port(); }
    QString errorString() const { return m_spoiler.errorString(); }

private:
    void serve(QTcpSocket* client);
    void takeReplies(QTcpSocket* client, QTcpSocket* server);
    void passOn(QTcpSocket* client, const QByteArray& reply);

    const quint16 m_serverPort;
    const Log m_log;
    ReplySpoiler m_spoiler;
    int m_replies = 0;
};
