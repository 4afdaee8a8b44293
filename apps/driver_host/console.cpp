#include "console.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* clearLine = "\r\x1b[K";
std::atomic<bool> progressIsShown{false};

// True when a failed write may be tried again: it was interrupted, or the file, which another
// program has set not to block, has room again.
bool canTryAgain(int file)
{
    if (errno == EAGAIN) {
        pollfd room{file, POLLOUT, 0};
        return ::poll(&room, 1, -1) >= 0 || errno == EINTR;
    }
    return errno == EINTR;
}

// All of it, or false with errno.
bool writeAll(int file, const QByteArray& bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t written =
            ::write(file, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && !canTryAgain(file)) {
            return false;
        }
        done += written < 0 ? 0 : written;
    }
    return true;
}

bool isPipe(int file)
{
    struct stat info = {};
    return ::fstat(file, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
}

bool wantsColor()
{
    return ::isatty(STDERR_FILENO) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
}

} // namespace

Console::Console(bool quiet, bool color, QObject* parent)
    : QObject(parent), m_quiet(quiet), m_color(color && wantsColor()),
      m_hangUp(STDOUT_FILENO, QSocketNotifier::Exception)
{
    m_hangUp.setEnabled(false);
    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone shows as a failed write
    watchOutput();
}

void Console::write(const QString& lines)
{
    if (!m_open || lines.isEmpty() || writeAll(STDOUT_FILENO, lines.toUtf8())) {
        return;
    }
    m_lostOutput = errno != EPIPE;
    if (m_lostOutput) {
        error(QStringLiteral("driver-host: cannot write to standard output: %1")
                  .arg(qt_error_string(errno)));
    }
    closeOutput();
}

void Console::error(const QString& line)
{
    writeStandardError(m_color ? QStringLiteral("\x1b[31m%1\x1b[0m").arg(line) : line);
}

void Console::note(const QString& line)
{
    if (!m_quiet) {
        writeStandardError(line);
    }
}

bool Console::canShowProgress() const
{
    return !m_quiet && ::isatty(STDERR_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 0;
}

void Console::showProgress(const QString& text)
{
    progressIsShown = true;
    writeAll(STDERR_FILENO, clearLine + text.toUtf8());
}

// A reader that goes away between two results is noticed here and not by the next write, which may
// be hours off.
void Console::watchOutput()
{
    connect(&m_hangUp, &QSocketNotifier::activated, this, &Console::closeOutput);
    m_hangUp.setEnabled(isPipe(STDOUT_FILENO));
}

void Console::closeOutput()
{
    m_hangUp.setEnabled(false);
    if (m_open) {
        m_open = false;
        emit outputClosed();
    }
}

void openStandardFiles()
{
    int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    while (file >= 0 && file <= STDERR_FILENO) {
        file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    ::close(file);
}

void writeStandardError(const QString& line)
{
    const QByteArray before = progressIsShown.exchange(false) ? clearLine : "";
    writeAll(STDERR_FILENO, before + line.toUtf8() + '\n');
}
