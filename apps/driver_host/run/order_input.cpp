#include "run/order_input.h"

#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int sliceSize = 64 * 1024;

mode_t fileMode(int file)
{
    struct stat info = {};
    return ::fstat(file, &info) == 0 ? info.st_mode : 0;
}

} // namespace

OrderInput::OrderInput(int file, QObject* parent) : QObject(parent), m_file(file)
{
    if (!S_ISREG(fileMode(file))) {
        m_notifier = std::make_unique<QSocketNotifier>(file, QSocketNotifier::Read);
        m_notifier->setEnabled(false);
        connect(m_notifier.get(), &QSocketNotifier::activated, this, &OrderInput::takeReadable);
    }
}

void OrderInput::setPaused(bool paused)
{
    m_paused = paused;
    if (!paused) {
        schedule();
    }
}

void OrderInput::close()
{
    m_closed = true;
    if (m_notifier) {
        m_notifier->setEnabled(false);
    }
}

void OrderInput::takeReadable()
{
    m_notifier->setEnabled(false);
    readMore();
    step();
}

void OrderInput::schedule()
{
    if (!m_scheduled) {
        m_scheduled = true;
        QMetaObject::invokeMethod(this, &OrderInput::step, Qt::QueuedConnection);
    }
}

// One slice a turn, so that the devices get theirs.
void OrderInput::step()
{
    m_scheduled = false;
    handOver();
    if (m_paused || m_closed) {
        return;
    }
    if (m_atEnd) {
        close();
        emit ended(m_error);
    } else if (m_notifier) {
        m_notifier->setEnabled(true);
    } else {
        readMore();
        schedule();
    }
}

void OrderInput::handOver()
{
    while (!m_paused && !m_closed) {
        const auto line = m_lines.next();
        if (!line) {
            return;
        }
        emit lineRead(*line);
    }
}

void OrderInput::readMore()
{
    std::array<char, sliceSize> bytes;
    const ssize_t size = ::read(m_file, bytes.data(), bytes.size());
    if (size > 0) {
        m_lines.append(bytes.data(), int(size));
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
        m_error = size < 0 ? qt_error_string(errno) : QString();
        m_atEnd = true;
        m_lines.finish();
    }
}

int openOrders(const QString& name, QString* error)
{
    // Not to block: a named pipe would hold up the program until somebody writes to it.
    const int file = name == QLatin1String("-")
        ? STDIN_FILENO
        : ::open(QFile::encodeName(name).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file >= 0 && !S_ISDIR(fileMode(file))) {
        return file;
    }
    *error = qt_error_string(file < 0 ? errno : EISDIR);
    return -1;
}
