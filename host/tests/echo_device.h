#pragma once

#include <QTcpServer>
#include <QTcpSocket>

/// A device for tests that answers each read of one register with the number of that register.
class EchoDevice : public QTcpServer
{
public:
    EchoDevice()
    {
        if (!listen(QHostAddress::LocalHost)) {
            qFatal("no port");
        }
        connect(this, &QTcpServer::newConnection, this, &EchoDevice::accept);
    }

private:
    void accept()
    {
        QTcpSocket* client = nextPendingConnection();
        connect(client, &QTcpSocket::readyRead, client, [client] {
            constexpr int requestSize = 12;
            while (client->bytesAvailable() >= requestSize) {
                const QByteArray request = client->read(requestSize);
                const QByteArray head = request.left(2) + QByteArray::fromHex("00000005");
                client->write(head + request.mid(6, 2) + char(2) + request.mid(8, 2));
            }
        });
    }
};
