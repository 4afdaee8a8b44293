#include "spoiling_proxy.h"

#include <QTcpSocket>

#include <utility>

namespace {

constexpr int HeaderSize = 6; // what the length field does not count
constexpr int LengthOffset = 4;

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

} // namespace

SpoilingProxy::SpoilingProxy(const Misbehaviour& misbehaviour, quint16 serverPort, Log log)
    : m_serverPort(serverPort), m_log(std::move(log)),
      m_spoiler(misbehaviour, [this](QTcpSocket* client) { serve(client); })
{
    connect(&m_spoiler, &ReplySpoiler::cannotComeBack, this,
            [this](const QString& why) { m_log(QStringLiteral("cannot come back: %1").arg(why)); });
}

bool SpoilingProxy::listen(const QHostAddress& address, quint16 port)
{
    return m_spoiler.listen(address, port);
}

void SpoilingProxy::serve(QTcpSocket* client)
{
    auto* server = new QTcpSocket(client); // goes with its client
    connect(client, &QTcpSocket::readyRead, server,
            [client, server] { server->write(client->readAll()); });
    connect(server, &QTcpSocket::readyRead, this,
            [this, client, server] { takeReplies(client, server); });
    server->connectToHost(QHostAddress::LocalHost, m_serverPort);
}

void SpoilingProxy::takeReplies(QTcpSocket* client, QTcpSocket* server)
{
    for (;;) {
        const int length = frameLength(server->peek(HeaderSize));
        if (length == 0 || server->bytesAvailable() < length) {
            return;
        }
        passOn(client, server->read(length));
    }
}

void SpoilingProxy::passOn(QTcpSocket* client, const QByteArray& reply)
{
    ++m_replies;
    const MisbehaviourKind* kind = m_spoiler.draw(*client, reply);
    if (kind != nullptr) {
        m_log(QStringLiteral("reply %1 is spoiled: %2")
                  .arg(m_replies)
                  .arg(QLatin1String(kind->name)));
    }
    m_spoiler.send(client, reply, kind);
}
