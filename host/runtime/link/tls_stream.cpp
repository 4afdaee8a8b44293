#include <runtime/link/tls_stream.h>

#include <runtime/link/tls_trouble.h>

#include <QSslSocket>

#include <poll.h>

namespace {

constexpr qint64 bufferSize = 0x4000; // one record: a device that floods must wait

} // namespace

TlsStream::TlsStream(const Events& events) : m_events(events), m_socket(new QSslSocket(this))
{
    watch();
}

TlsStream::~TlsStream() { m_socket->disconnect(this); }

void TlsStream::end()
{
    m_socket->disconnect(this);
    m_hasEnded = true;
    m_isGone = true;
    m_socket->disconnectFromHost(); // tells the other side
    m_socket->abort();
    deleteLater();
}

// What the socket tells is taken up once it has returned: what follows may end this object.
void TlsStream::watch()
{
    connect(m_socket, &QSslSocket::encrypted, this, &TlsStream::tell, Qt::QueuedConnection);
    connect(m_socket, &QSslSocket::readyRead, this, &TlsStream::tell, Qt::QueuedConnection);
    connect(m_socket, &QSslSocket::errorOccurred, this, &TlsStream::noteEnd);
}

void TlsStream::start(int descriptor, const QString& host, const TlsSettings& settings)
{
    m_socket->setReadBufferSize(bufferSize);
    m_socket->setSslConfiguration(settings.configuration);
    m_socket->setPeerVerifyName(settings.name.isEmpty() ? host : settings.name);
    m_socket->setSocketDescriptor(descriptor, QSslSocket::ConnectedState,
                                  QIODevice::ReadWrite | QIODevice::Unbuffered);
    m_socket->startClientEncryption();
}

void TlsStream::noteEnd()
{
    if (m_socket->error() == QAbstractSocket::SocketTimeoutError || m_hasEnded) {
        return; // a look that found nothing
    }
    m_hasEnded = true;
    m_trouble = tlsTrouble(*m_socket);
    QMetaObject::invokeMethod(this, &TlsStream::tell, Qt::QueuedConnection);
}

void TlsStream::tell()
{
    if (m_isGone) { // what was posted before
        return;
    }
    if (!m_isSecured && m_socket->isEncrypted()) {
        m_isSecured = true;
        m_events.secured();
    } else if (m_isSecured || m_hasEnded) {
        m_events.readable();
    }
}

void TlsStream::look()
{
    if (!m_socket->isEncrypted()) {
        m_socket->waitForEncrypted(0);
    } else if (hasArrived()) {
        m_socket->waitForReadyRead(0);
    }
    tell();
}

// Something waits that the socket has not read: it is dear to ask the socket itself.
bool TlsStream::hasArrived() const
{
    pollfd ready{static_cast<int>(m_socket->socketDescriptor()), POLLIN, 0};
    return !m_hasEnded && ::poll(&ready, 1, 0) > 0;
}

qint64 TlsStream::receive(char* data, qint64 size)
{
    if (m_socket->bytesAvailable() == 0 && hasArrived()) {
        m_socket->waitForReadyRead(0);
    }
    const qint64 count = m_socket->read(data, size);
    return count > 0 || !m_hasEnded ? qMax<qint64>(count, 0) : -1;
}

// What the system cannot take at once leaves later; a device that takes nothing gets no more.
qint64 TlsStream::send(const char* data, qint64 size)
{
    if (!m_hasEnded && m_socket->encryptedBytesToWrite() > bufferSize) {
        return 0;
    }
    const qint64 count = m_hasEnded ? -1 : m_socket->write(data, size);
    m_socket->flush();
    return m_hasEnded ? -1 : count;
}

qint64 TlsStream::waiting() const { return m_socket->bytesAvailable(); }
