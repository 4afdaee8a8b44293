#pragma once

#include "misbehaviour.h"

#include <QHostAddress>
#include <QObject>
#include <QRandomGenerator>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

/// The door of a misbehaving device: listens for clients, and sends them replies, each n-th of them
/// spoiled.
class ReplySpoiler : public QObject
{
    Q_OBJECT

public:
    /// \a clientCame is called with every new client. It lives until its connection ends, or the
    /// spoiler does.
    ReplySpoiler(Misbehaviour misbehaviour, std::function<void(QTcpSocket*)> clientCame);

    /// False, with the reason in errorString(), when it cannot listen there.
    bool listen(const QHostAddress& address, quint16 port);
    quint16 port() const { return m_listener.serverPort(); }
    QString errorString() const { return m_listener.errorString(); }

    /// How the next reply, this one, will be spoiled; null when it will leave as it is.
    const MisbehaviourKind* draw(const QTcpSocket& client, const QByteArray& reply);
    /// Sends it, spoiled in this way; null to send it as it is.
    void send(QTcpSocket* client, const QByteArray& reply, const MisbehaviourKind* kind);

signals:
    /// A device that has rebooted cannot listen where it did.
    void cannotComeBack(const QString& why);

private:
    void admit();
    void follow(QTcpSocket* client, const QByteArray& reply, int sent, MisbehaviourKind::Then then);
    void reboot();

    const Misbehaviour m_misbehaviour;
    const std::function<void(QTcpSocket*)> m_clientCame;
    QRandomGenerator m_random;
    QTcpServer m_listener;
    int m_replies = 0;
};
