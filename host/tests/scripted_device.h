#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <sys/socket.h>

#include <cerrno>
#include <functional>

/// A device for tests that misbehaves by name: each request takes the next step of the script, and
/// is answered properly when the script is through. A request's 16-bit field at offset 8 comes back
/// as the reply's value, so that every reply tells which request it answers.
class ScriptedDevice : public QObject
{
public:
    enum Step {
        Answer,
        Never,
        Late, ///< after lateMs
        ByteByByte,
        HalfThenRest,
        Twice, ///< the reply and a copy of it in one write
        OtherFunction,
        OtherUnit,
        OtherId,
        WrongLength, ///< the length field tells one byte less than there is
        Exception2,
        ImplausibleHeader,
        CloseInstead,
        HalfThenClose,
        CloseAfter,
        FullStop, ///< from here on it reads nothing any more
    };

    ScriptedDevice() { start(0); }

    bool start(quint16 port)
    {
        m_server.reset(new QTcpServer);
        connect(m_server.data(), &QTcpServer::newConnection, this, [this] { accept(); });
        return m_server->listen(QHostAddress::AnyIPv4, port);
    }

    /// Closes all connections and is gone until start().
    void powerOff()
    {
        m_server->close();
        closeAll();
    }

    void closeAll()
    {
        const auto clients = m_clients.keys();
        for (QTcpSocket* client : clients) {
            client->abort();
        }
    }

    void sendUnasked(const QByteArray& bytes)
    {
        for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it) {
            it.key()->write(bytes);
            it.key()->flush(); // now, not when the event loop runs
        }
    }

    quint16 port() const { return m_server->serverPort(); }
    int openConnections() const { return m_clients.size(); }

    struct Attempt
    {
        QString address; ///< of ours, as the other side knows it
        qint64 atMs;
    };

    bool numbersReplies = false; ///< a reply's value is the number of its request, from 1
    QList<Step> script;
    std::function<void()> beforeStep; ///< may change the script for each request
    QElapsedTimer* clock = nullptr; ///< set: attempts to connect are written down
    QList<Attempt> attempts;
    int lateMs = 0;
    bool closeOnAccept = false;
    QList<QByteArray> requests;
    int connections = 0;
    int mostConnections = 0;

    static QByteArray reply(const QByteArray& request)
    {
        QByteArray frame = request.left(2) + QByteArray::fromHex("00000005");
        return frame + request.mid(6, 2) + char(2) + request.mid(8, 2);
    }

private:
    void accept()
    {
        while (QTcpSocket* client = m_server->nextPendingConnection()) {
            ++connections;
            if (clock != nullptr) {
                attempts.append({client->localAddress().toString(), clock->elapsed()});
            }
            // Else a reply behind a late one waits until the host acknowledges that: 40 ms.
            client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            m_clients.insert(client, {});
            mostConnections = qMax(mostConnections, liveConnections());
            connect(client, &QTcpSocket::readyRead, this, [this, client] { read(client); });
            connect(client, &QTcpSocket::disconnected, this, [this, client] {
                m_clients.remove(client);
                client->deleteLater();
            });
            client->setParent(this);
            if (closeOnAccept) {
                client->abort();
            }
        }
    }

    // A connection that the other side has closed counts no more, though our loop has not come to
    // reading that yet.
    int liveConnections() const
    {
        int live = 0;
        for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it) {
            char byte = 0;
            const auto fd = static_cast<int>(it.key()->socketDescriptor());
            const auto size = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
            live += size > 0 || (size < 0 && errno == EAGAIN) ? 1 : 0;
        }
        return live;
    }

    void read(QTcpSocket* client)
    {
        constexpr int requestSize = 12;
        QByteArray& buffer = m_clients[client];
        buffer += client->readAll();
        while (m_clients.contains(client) && m_clients[client].size() >= requestSize) {
            const QByteArray request = m_clients[client].left(requestSize);
            m_clients[client].remove(0, requestSize);
            requests.append(request);
            if (beforeStep) {
                beforeStep();
            }
            play(script.isEmpty() ? Answer : script.takeFirst(), client, request);
        }
    }

    void later(QTcpSocket* client, int ms, const QByteArray& bytes)
    {
        QTimer::singleShot(ms, client, [client, bytes] {
            if (client->state() == QAbstractSocket::ConnectedState) {
                client->write(bytes);
                client->flush();
            }
        });
    }

    void play(Step step, QTcpSocket* client, const QByteArray& request)
    {
        QByteArray good = reply(request);
        if (numbersReplies) {
            good[9] = char(requests.size() >> 8);
            good[10] = char(requests.size());
        }
        switch (step) {
        case Answer:
            client->write(good);
            break;
        case Never:
            break;
        case Late:
            later(client, lateMs, good);
            break;
        case ByteByByte:
            for (int i = 0; i < good.size(); ++i) {
                later(client, i, good.mid(i, 1));
            }
            break;
        case HalfThenRest:
            later(client, 0, good.left(5));
            later(client, 5, good.mid(5));
            break;
        case Twice:
            client->write(good + good);
            break;
        case OtherFunction:
            client->write(QByteArray(good).replace(7, 1, "\x04"));
            break;
        case OtherUnit:
            client->write(QByteArray(good).replace(6, 1, "\x07"));
            break;
        case OtherId:
            client->write(QByteArray(good).replace(0, 2, "\x7f\x7f"));
            break;
        case WrongLength:
            client->write(QByteArray(good).replace(5, 1, "\x04"));
            break;
        case Exception2:
            client->write(request.left(2) + QByteArray::fromHex("00000003") + request.mid(6, 1)
                          + QByteArray::fromHex("8302"));
            break;
        case ImplausibleHeader:
            client->write("HTTP/1.0 400");
            break;
        case CloseInstead:
            client->abort();
            break;
        case HalfThenClose:
            client->write(good.left(8));
            client->disconnectFromHost();
            break;
        case CloseAfter:
            client->write(good);
            client->disconnectFromHost();
            break;
        case FullStop:
            client->disconnect(this);
            break;
        }
    }

    QScopedPointer<QTcpServer> m_server;
    QHash<QTcpSocket*, QByteArray> m_clients;
};
