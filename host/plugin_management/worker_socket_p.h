#pragma once

#include <plugin_management/event_hub_p.h>

#include <QAbstractSocket>

/// A connected TCP socket without buffers: what is written leaves within the write, what has
/// arrived is fetched by the read. It takes over what another socket has connected, and shows what
/// passes through it.
///
/// It ends without a signal: reading or writing finds the end, and the state tells of it.
class WorkerSocket : public QAbstractSocket
{
    Q_OBJECT

public:
    explicit WorkerSocket(QObject* parent);
    ~WorkerSocket() override;

    /// Takes over the connection of \a connected, which keeps none, and calls \a readable when
    /// there is something to read. False, with errorString(), when the system refuses.
    bool adopt(QAbstractSocket& connected, const SocketPoll::Handler& readable);

    using Watch = void (*)(void* owner, bool outgoing, const char* data, qint64 size);
    /// Calls \a watch with every run of bytes that is written or read.
    void setWatch(Watch watch, void* owner);

    /// read() without the layers of a device that might be buffered.
    qint64 fetch(char* data, qint64 size) { return readData(data, size); }

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
    void setLinkOptions() const;
    void copyAddresses(const QAbstractSocket& from);
    void end(SocketError error, const QString& why);
    void closeDescriptor();

    std::shared_ptr<EventHub> m_hub;
    int m_descriptor = -1;
    Watch m_watch = nullptr;
    void* m_owner = nullptr;
};
