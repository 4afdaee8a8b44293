#pragma once

#include "misbehaviour.h"

#include <QHostAddress>
#include <QObject>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

/// Stands between the clients and a well-behaved server, and spoils every n-th reply.
///
/// Each client gets a connection of its own to the server; requests pass untouched, replies are cut
/// by their length field.
class Gate : public QObject
{
    Q_OBJECT

public:
    using Log = std::function<void(const QString&)>;

    /// \a serverPort is that of the server on the loopback address. \a log gets a line for every
    /// spoiled reply.
    Gate(const Misbehaviour& misbehaviour, quint16 serverPort, Log log);

    /// False, with the reason in errorString(), when it cannot listen there.
    bool listen(const QHostAddress& address, quint16 port);
    quint16 port() const { return m_listener.serverPort(); }
    QString errorString() const { return m_listener.errorString(); }

private:
    void admit();
    void takeReplies(QTcpSocket* client, QTcpSocket* server);
    void passOn(QTcpSocket* client, const QByteArray& reply);
    void spoil(QTcpSocket* client, const QByteArray& reply);
    void sendByteByByte(QTcpSocket* client, const QByteArray& reply);
    void reboot();

    const Misbehaviour m_misbehaviour;
    const quint16 m_serverPort;
    const Log m_log;
    QTcpServer m_listener;
    int m_replies = 0;
};
