#pragma once

#include <QByteArray>

#include <openssl/ssl.h>

#include <deque>
#include <memory>

/// A device's end of TLS on one link. It understands at once what the process sends, so that it can
/// be judged; what takes time is the way there and back.
class TlsServer
{
public:
    /// Where the certificate and the key of all devices are. Its name in it is "device".
    static QString certificateFile();

    TlsServer();

    /// What the process says by these bytes; nothing as long as hands are shaken.
    QByteArray opened(const QByteArray& wire);
    /// What the device has to send for the handshake.
    QByteArray takeAnswer();
    /// What the device has to send to say this.
    QByteArray sealed(const QByteArray& bytes);
    /// What the next so many bytes say that the process receives.
    QByteArray received(int size);
    /// It has received a part of something.
    bool isWithinRecord() const { return m_hasPart; }

private:
    struct Record
    {
        int left; ///< bytes that the process has not received
        QByteArray says;
    };

    QByteArray take(const QByteArray& says);
    QByteArray newKey();

    std::unique_ptr<SSL, void (*)(SSL*)> m_ssl;
    BIO* m_in; ///< the connection owns both
    BIO* m_out;
    std::deque<Record> m_records;
    int m_said = 0;
    bool m_hasPart = false;
};
