#pragma once

#include <QHostAddress>
#include <QTcpSocket>

/// A socket without a network: in the state it is told, with input that is waiting and output that
/// is kept.
class FakeSocket : public QTcpSocket
{
public:
    FakeSocket()
    {
        setSocketState(ConnectedState);
        setOpenMode(ReadWrite | Unbuffered);
        setPeerAddress(QHostAddress("192.168.1.20"));
    }
    // The base would close a connection that it does not have.
    ~FakeSocket() override { setSocketState(UnconnectedState); }
    Q_DISABLE_COPY(FakeSocket)
    using QTcpSocket::setSocketState;

    QByteArray input;
    QByteArray output;
    int room = 256; ///< at most so many bytes are taken; -1: an error
    QString traffic; ///< "r" for reads, "w" for writes, in order; repetitions of one count once

protected:
    qint64 readData(char* data, qint64 size) override
    {
        note('r');
        const QByteArray part = input.left(static_cast<int>(size));
        input.remove(0, part.size());
        std::copy(part.begin(), part.end(), data);
        return part.size();
    }
    qint64 writeData(const char* data, qint64 size) override
    {
        note('w');
        const int taken = qMin(static_cast<int>(size), room);
        output.append(data, qMax(taken, 0));
        return taken;
    }

private:
    void note(char what)
    {
        if (!traffic.endsWith(what)) {
            traffic += what;
        }
    }
};
