#include <runtime/link/serial/serial_line.h>

#include <runtime/link/serial/serial_trouble.h>

#include <QSerialPort>
#include <QSocketNotifier>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr qint64 restUs = 100000; // Modbus over Serial Line V1.02, section 2.4.1: of a broadcast
constexpr qint64 longestUnrestUs = 1000000;

QSerialPort::Parity parityOf(char letter)
{
    return letter == 'N' ? QSerialPort::NoParity
        : letter == 'E'  ? QSerialPort::EvenParity
                         : QSerialPort::OddParity;
}

} // namespace

SerialLine::SerialLine(const SerialSettings& settings, const Events& events)
    : m_settings(settings), m_events(events), m_due({this, &SerialLine::handleDue})
{
}

SerialLine::~SerialLine() { close(); }

QString SerialLine::open()
{
    close();
    QString why = start();
    if (!why.isEmpty()) {
        close();
    }
    return why;
}

QString SerialLine::start()
{
    m_port = std::make_unique<QSerialPort>(m_settings.device);
    m_port->setBaudRate(m_settings.baud);
    m_port->setParity(parityOf(m_settings.parity));
    m_port->setStopBits(m_settings.stopBits == 2 ? QSerialPort::TwoStop : QSerialPort::OneStop);
    if (!m_port->open(QIODevice::ReadWrite)) {
        return SerialTrouble::ofOpening(*m_port, m_settings);
    }
    for (QSocketNotifier* notifier : m_port->findChildren<QSocketNotifier*>()) {
        notifier->setEnabled(false); // else it would take the bytes
    }
    const int descriptor = m_port->handle();
    QString why = SerialTrouble::ofSpeed(descriptor, m_settings.baud);
    m_reactor = Reactor::ofThisThread();
    ::tcflush(descriptor, TCIOFLUSH);
    if (why.isEmpty() && !m_reactor->watch(descriptor, EPOLLIN, {this, &SerialLine::handleReady})) {
        why = qt_error_string(errno);
    }
    if (why.isEmpty()) {
        m_descriptor = descriptor;
        m_givenUpUs = steadyNowUs() + longestUnrestUs;
        m_due.set(steadyNowUs() + restUs);
    }
    return why;
}

void SerialLine::close()
{
    if (m_descriptor >= 0) {
        m_reactor->unwatch(m_descriptor);
        ::tcflush(m_descriptor, TCIOFLUSH); // else closing it waits until all has left
        m_descriptor = -1;
    }
    m_port.reset();
    m_due.set(Deadline::never);
    m_isOpen = false;
    m_request.clear();
    m_echo.clear();
    m_trouble.clear();
}

void SerialLine::look()
{
    pollfd ready{m_descriptor, POLLIN, 0};
    if (m_descriptor >= 0 && ::poll(&ready, 1, 0) > 0) {
        handleReady(0);
    }
}

void SerialLine::handleReady(quint32 events)
{
    Q_UNUSED(events)
    if (m_isOpen && m_request.isEmpty()) {
        m_events.readable();
    } else if (dropUnasked()) {
        handleUnasked();
    }
}

// The silence begins anew.
void SerialLine::handleUnasked()
{
    const qint64 nowUs = steadyNowUs();
    if (!m_trouble.isEmpty() && m_isOpen) {
        m_events.readable(); // which finds the trouble
    } else if (!m_trouble.isEmpty()) {
        m_events.failed(QString(m_trouble));
    } else if (m_isOpen) {
        m_due.set(nowUs + m_settings.silenceUs());
    } else if (nowUs < m_givenUpUs) {
        m_due.set(nowUs + restUs);
    } else {
        m_events.failed(SerialTrouble::neverSilent());
    }
}

void SerialLine::handleDue()
{
    if (dropUnasked()) { // it came before this, and nobody has looked
        handleUnasked();
    } else if (!m_isOpen) {
        m_isOpen = true;
        m_events.opened();
    } else if (!m_request.isEmpty()) {
        writeRequest();
        if (!m_trouble.isEmpty()) {
            m_events.readable();
        }
    }
}

// True when there was something, or the line has ended.
bool SerialLine::dropUnasked()
{
    std::array<char, 512> dropped;
    return readSome(dropped.data(), dropped.size()) != 0;
}

qint64 SerialLine::readSome(char* data, qint64 size)
{
    const ssize_t count = ::read(m_descriptor, data, static_cast<std::size_t>(size));
    if (count > 0) {
        m_silentUs = steadyNowUs() + m_settings.silenceUs();
        return count;
    }
    const bool isNothing = count < 0 ? errno == EAGAIN || errno == EINTR : !hasHungUp();
    if (isNothing) {
        return 0;
    }
    m_trouble = SerialTrouble::gone();
    return -1;
}

// A line that has nothing reads as one that has gone.
bool SerialLine::hasHungUp() const
{
    pollfd line{m_descriptor, POLLIN, 0};
    return ::poll(&line, 1, 0) > 0 && (line.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

qint64 SerialLine::receive(char* data, qint64 size)
{
    if (!m_trouble.isEmpty()) {
        return -1;
    }
    const qint64 count = readSome(data, size);
    return count > 0 && !m_echo.isEmpty() ? withoutEcho(data, count) : count;
}

qint64 SerialLine::withoutEcho(char* data, qint64 count)
{
    const auto ours = static_cast<int>(std::min<qint64>(count, m_echo.size()));
    if (std::memcmp(data, m_echo.constData(), static_cast<std::size_t>(ours)) != 0) {
        m_trouble = SerialTrouble::noEcho();
        return -1;
    }
    m_echo.remove(0, ours);
    std::memmove(data, data + ours, static_cast<std::size_t>(count - ours));
    return count - ours;
}

qint64 SerialLine::send(const char* data, qint64 size)
{
    if (!m_trouble.isEmpty()) {
        return -1;
    }
    m_request = QByteArray(data, static_cast<int>(size));
    if (steadyNowUs() < m_silentUs) {
        m_due.set(m_silentUs);
    } else {
        writeRequest();
    }
    return m_trouble.isEmpty() ? size : -1;
}

void SerialLine::writeRequest()
{
    const QByteArray frame = std::exchange(m_request, {});
    const ssize_t count =
        ::write(m_descriptor, frame.constData(), static_cast<std::size_t>(frame.size()));
    if (count != frame.size()) {
        const bool isStuck = count >= 0 || errno == EAGAIN;
        m_trouble = isStuck ? SerialTrouble::stuck() : SerialTrouble::gone();
    }
    m_echo = m_settings.echoes ? frame : QByteArray();
    m_silentUs = steadyNowUs() + m_settings.durationUs(frame.size()) + m_settings.silenceUs();
}

qint64 SerialLine::waiting() const
{
    int count = 0;
    return m_descriptor >= 0 && ::ioctl(m_descriptor, FIONREAD, &count) == 0 ? count : 0;
}
