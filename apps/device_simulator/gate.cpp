#include "gate.h"

#include <QTcpSocket>
#include <QTimer>

#include <utility>

namespace {

constexpr int HeaderSize = 6; // what the length field does not count
constexpr int LengthOffset = 4;
constexpr int BytePauseMs = 5;

// The length of the first frame, 0 while the header is not there yet.
int frameLength(const QByteArray& bytes)
{
    if (bytes.size() < HeaderSize) {
        return 0;
    }
    const auto high = static_cast<uchar>(bytes.at(LengthOffset));
    const auto low = static_cast<uchar>(bytes.at(LengthOffset + 1));
    return HeaderSize + high * 256 + low;
}

void sendNow(QTcpSocket* client, const QByteArray& bytes)
{
    if (client->state() == QAbstractSocket::ConnectedState) {
        client->write(bytes);
        client->flush();
    }
}

} // namespace

Gate::Gate(const Misbehaviour& misbehaviour, quint16 serverPort, Log log)
    : m_misbehaviour(misbehaviour), m_serverPort(serverPort), m_log(std::move(log))
{
    connect(&m_listener, &QTcpServer::newConnection, this, &Gate::admit);
}

bool Gate::listen(const QHostAddress& address, quint16 port)
{
    return m_listener.listen(address, port);
}

void Gate::admit()
{
    while (QTcpSocket* client = m_listener.nextPendingConnection()) {
        client->setParent(this);
        client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        auto* server = new QTcpSocket(client); // goes with its client
        connect(client, &QTcpSocket::readyRead, server,
                [client, server] { server->write(client->readAll()); });
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        connect(server, &QTcpSocket::readyRead, this,
                [this, client, server] { takeReplies(client, server); });
        server->connectToHost(QHostAddress::LocalHost, m_serverPort);
    }
}

void Gate::takeReplies(QTcpSocket* client, QTcpSocket* server)
{
    for (;;) {
        const int length = frameLength(server->peek(HeaderSize));
        if (length == 0 || server->bytesAvailable() < length) {
            return;
        }
        passOn(client, server->read(length));
    }
}

void Gate::passOn(QTcpSocket* client, const QByteArray& reply)
{
    if (++m_replies % m_misbehaviour.every == 0) {
        m_log(QStringLiteral("reply %1 is spoiled").arg(m_replies));
        spoil(client, reply);
    } else {
        sendNow(client, reply);
    }
}

void Gate::spoil(QTcpSocket* client, const QByteArray& reply)
{
    using Kind = Misbehaviour::Kind;
    sendNow(client, m_misbehaviour.firstPart(reply));
    const QByteArray later = m_misbehaviour.laterPart(reply);
    if (!later.isEmpty()) {
        QTimer::singleShot(m_misbehaviour.delayMs, client,
                           [client, later] { sendNow(client, later); });
    }
    switch (m_misbehaviour.kind) {
    case Kind::ByteByByte:
        sendByteByByte(client, reply);
        break;
    case Kind::CloseBefore:
    case Kind::CloseWithin:
    case Kind::CloseAfter:
        client->disconnectFromHost();
        break;
    case Kind::Reboot:
        reboot();
        break;
    default:
        break;
    }
}

void Gate::sendByteByByte(QTcpSocket* client, const QByteArray& reply)
{
    for (int i = 0; i < reply.size(); ++i) {
        QTimer::singleShot(i * BytePauseMs, client,
                           [client, byte = reply.mid(i, 1)] { sendNow(client, byte); });
    }
}

void Gate::reboot()
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
            m_log(QStringLiteral("cannot come back: %1").arg(m_listener.errorString()));
        }
    });
}
