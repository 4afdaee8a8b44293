#include "output/console.h"

#include "terminal/live_terminal.h"

#include <common/failure.h>
#include <common/terminal_text.h>
#include <common/write_all.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* clearLine = "\r\x1b[K";
std::atomic<bool> progressIsShown{false};

bool isPipe(int file)
{
    struct stat info = {};
    return ::fstat(file, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
}

bool canShowColor(int file)
{
    return ::isatty(file) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
}

// A line that a terminal may be given as it is.
void writeSafeLine(const QString& line)
{
    if (LiveTerminal::holdBack(line)) {
        return;
    }
    const QByteArray before = progressIsShown.exchange(false) ? clearLine : "";
    writeAll(STDERR_FILENO, before + line.toUtf8() + '\n');
}

QString safeLine(const QString& line) { return withoutControls(line, QStringLiteral("\t")); }

} // namespace

Console::Console(bool quiet, bool color, QObject* parent)
    : QObject(parent), m_quiet(quiet), m_color(color && canShowColor(STDERR_FILENO)),
      m_colorOfResults(color && canShowColor(STDOUT_FILENO)),
      m_isTerminal(::isatty(STDOUT_FILENO) == 1),
      m_hangUp(STDOUT_FILENO, QSocketNotifier::Exception)
{
    m_hangUp.setEnabled(false);
    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone shows as a failed write
    watchOutput();
}

void Console::write(const QString& lines)
{
    if (!m_open || lines.isEmpty()) {
        return;
    }
    if (m_isTerminal) {
        clearProgress();
    }
    const QString shown = m_isTerminal ? withoutControls(lines, QStringLiteral("\n\t")) : lines;
    if (!writeAll(STDOUT_FILENO, shown.toUtf8())) {
        loseOutput();
    }
}

void Console::loseOutput()
{
    if (!m_open) {
        return;
    }
    const bool readerHasGone = errno == EPIPE || (errno == EIO && m_isTerminal);
    m_lostOutput = !readerHasGone;
    if (m_lostOutput) {
        error(failureLine(
            QStringLiteral("cannot write to standard output: %1").arg(qt_error_string(errno))));
    }
    closeOutput();
}

void Console::error(const QString& line)
{
    const QString safe = safeLine(line);
    writeSafeLine(m_color ? QStringLiteral("\x1b[31m%1\x1b[0m").arg(safe) : safe);
}

void Console::note(const QString& line)
{
    if (!m_quiet) {
        writeStandardError(line);
    }
}

bool Console::canShowProgress(bool withResults) const
{
    return !m_quiet && ::isatty(STDERR_FILENO) == 1 && (withResults || !m_isTerminal);
}

void Console::clearProgress()
{
    if (progressIsShown.exchange(false)) {
        writeAll(STDERR_FILENO, clearLine);
    }
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

void writeStandardError(const QString& line) { writeSafeLine(safeLine(line)); }
