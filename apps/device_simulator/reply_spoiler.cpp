#include "reply_spoiler.h"

#include <QTcpSocket>
#include <QTimer>

#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr int ShortPauseMs = 5;
constexpr int DripPauseMs = 250;
constexpr int FloodAhead = 64 * 1024; // bytes that wait to be sent
// Properties of a client.
constexpr const char* LastReply = "lastReply";
constexpr const char* WithinReply = "withinReply"; // a reply has been sent in part

void sendNow(QTcpSocket* client, const QByteArray& bytes)
{
    if (client->state() == QAbstractSocket::ConnectedState) {
        client->write(bytes);
        client->flush();
    }
}

void sendLater(QTcpSocket* client, int delayMs, const QByteArray& bytes)
{
    QTimer::singleShot(delayMs, client, [client, bytes] { sendNow(client, bytes); });
}

// Not into the middle of another reply: nobody could tell such bytes from that one's own.
void sendSoon(QTcpSocket* client, const QByteArray& reply)
{
    QTimer::singleShot(ShortPauseMs, client, [client, reply] {
        if (!client->property(WithinReply).toBool()) {
            sendNow(client, reply);
        }
    });
}

void sendByteByByte(QTcpSocket* client, const QByteArray& reply)
{
    for (int i = 0; i < reply.size(); ++i) {
        sendLater(client, i * ShortPauseMs, reply.mid(i, 1));
    }
}

void drip(QTcpSocket* client, const QByteArray& reply)
{
    auto* timer = new QTimer(client);
    QObject::connect(timer, &QTimer::timeout, client, [client, reply, next = 0]() mutable {
        sendNow(client, reply.mid(next, 1));
        next = (next + 1) % reply.size();
    });
    timer->start(DripPauseMs);
}

// Not more at once than what keeps the sender busy, so that the other clients are served as well.
void flood(QTcpSocket* client, const QByteArray& reply)
{
    const auto sendMore = [client, copies = reply.repeated(FloodAhead / reply.size())] {
        if (client->bytesToWrite() < FloodAhead
            && client->state() == QAbstractSocket::ConnectedState) {
            client->write(copies);
        }
    };
    QObject::connect(client, &QTcpSocket::bytesWritten, client, sendMore);
    sendMore();
}

} // namespace

ReplySpoiler::ReplySpoiler(Misbehaviour misbehaviour, std::function<void(QTcpSocket*)> clientCame)
    : m_misbehaviour(std::move(misbehaviour)), m_clientCame(std::move(clientCame)),
      m_random(static_cast<quint32>(m_misbehaviour.seed))
{
    connect(&m_listener, &QTcpServer::newConnection, this, &ReplySpoiler::admit);
}

bool ReplySpoiler::listen(const QHostAddress& address, quint16 port)
{
    return m_listener.listen(address, port);
}

void ReplySpoiler::admit()
{
    while (QTcpSocket* client = m_listener.nextPendingConnection()) {
        client->setParent(this);
        client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        m_clientCame(client);
    }
}

const MisbehaviourKind* ReplySpoiler::draw(const QTcpSocket& client, const QByteArray& reply)
{
    if (m_misbehaviour.kinds.empty() || ++m_replies % m_misbehaviour.every != 0) {
        return nullptr;
    }
    std::vector<const MisbehaviourKind*> fitting;
    std::copy_if(m_misbehaviour.kinds.begin(), m_misbehaviour.kinds.end(),
                 std::back_inserter(fitting),
                 [&, last = client.property(LastReply).toByteArray()](const auto* kind) {
                     return !kind->spares(reply, last);
                 });
    const auto count = static_cast<quint32>(fitting.size());
    return count > 0 ? fitting[m_random.bounded(count)] : nullptr;
}

void ReplySpoiler::send(QTcpSocket* client, const QByteArray& reply, const MisbehaviourKind* kind)
{
    const QByteArray last = client->property(LastReply).toByteArray();
    client->setProperty(LastReply, reply);
    client->setProperty(WithinReply, kind != nullptr && kind->sendsInParts());
    const QByteArray now = kind != nullptr ? kind->now(reply, last) : reply;
    sendNow(client, now);
    if (kind != nullptr) {
        follow(client, reply, now.size(), kind->then);
    }
}

void ReplySpoiler::follow(QTcpSocket* client, const QByteArray& reply, int sent,
                          MisbehaviourKind::Then then)
{
    using Then = MisbehaviourKind::Then;
    switch (then) {
    case Then::Nothing:
        break;
    case Then::Rest:
        sendLater(client, m_misbehaviour.delayMs, reply.mid(sent));
        break;
    case Then::ReplySoon:
        sendSoon(client, reply);
        break;
    case Then::ByteByByte:
        sendByteByByte(client, reply);
        break;
    case Then::Drip:
        drip(client, reply);
        break;
    case Then::Flood:
        flood(client, reply);
        break;
    case Then::Close:
        client->disconnectFromHost();
        break;
    case Then::HalfClose:
        ::shutdown(static_cast<int>(client->socketDescriptor()), SHUT_WR);
        break;
    case Then::Reboot:
        reboot();
        break;
    }
}

void ReplySpoiler::reboot()
{
    const QHostAddress address = m_listener.serverAddress();
    const quint16 port = m_listener.serverPort();
    m_listener.close();
    const auto clients = findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    for (QTcpSocket* client : clients) {
        client->disconnectFromHost();
    }
    QTimer::singleShot(m_misbehaviour.delayMs, this, [this, address, port] {
        if (!m_listener.listen(address, port)) {
            emit cannotComeBack(m_listener.errorString());
        }
    });
}
