#include "terminal/live_terminal.h"

#include <common/write_all.h>

#include <array>
#include <csignal>
#include <mutex>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int terminal = STDOUT_FILENO;
constexpr const char* hideCursor = "\x1b[?25l";
constexpr const char* showCursor = "\x1b[?25h";
constexpr const char* clearBelow = "\r\x1b[J";
constexpr const char* clearToLineEnd = "\x1b[K";
constexpr const char* nextLine = "\r\n";
constexpr std::array<int, 2> endingSignals{SIGQUIT, SIGABRT};

struct State
{
    std::mutex mutex; // lines for standard error come from the threads that look up host names, too
    std::function<void()> wake;
    QStringList lines; // as they are shown
    QByteArray heldBack;
    bool isTouched = false;
};

State& state()
{
    static State state;
    return state;
}

// What a signal handler may look at.
volatile std::sig_atomic_t isTaken = 0;
termios settingsBefore;
bool hasSettings = false;

bool isOurs()
{
    const pid_t group = ::tcgetpgrp(terminal);
    return group < 0 || group == ::getpgrp(); // below 0: it has no groups, so it is nobody else's
}

// A program in the background would be stopped for trying.
void restoreSettings()
{
    if (hasSettings && isOurs()) {
        ::tcsetattr(terminal, TCSAFLUSH, &settingsBefore); // what was typed was not seen
    }
}

void endBySignal(int signal)
{
    LiveTerminal::restoreAtOnce();
    ::raise(signal);
}

// The signals that end the program where it stands; SIGINT and its like come to its event loop.
void watchEnding()
{
    for (const int signal : endingSignals) {
        struct sigaction action = {};
        ::sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_DFL) {
            action.sa_handler = endBySignal;
            action.sa_flags = int(SA_RESETHAND);
            ::sigaction(signal, &action, nullptr);
        }
    }
}

void take()
{
    termios settings = {};
    if (::tcgetattr(terminal, &settings) == 0) {
        // Without echo they may still be ours, from before a stop.
        settingsBefore = hasSettings && !(settings.c_lflag & ECHO) ? settingsBefore : settings;
        hasSettings = true;
        settings.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(terminal, TCSANOW, &settings);
    }
    isTaken = 1;
    watchEnding();
}

void printHeldBackLines(State& shared)
{
    if (!shared.heldBack.isEmpty()) {
        writeAll(terminal, clearBelow);
        writeAll(STDERR_FILENO, shared.heldBack);
        shared.heldBack.clear();
        shared.isTouched = true;
    }
}

// Without wrapping: a terminal that has just been made narrower, and has not said so yet, would
// take more rows than it is told to go up again.
QByteArray drawing(const QStringList& lines)
{
    QByteArray bytes = QByteArray(hideCursor) + "\x1b[?7l\r";
    for (const QString& line : lines) {
        bytes += line.toUtf8() + clearToLineEnd + nextLine;
    }
    bytes.chop(int(qstrlen(nextLine)));
    bytes += "\x1b[J\x1b[?7h";
    if (lines.size() > 1) {
        bytes += "\x1b[" + QByteArray::number(lines.size() - 1) + 'A';
    }
    return bytes + '\r';
}

bool draw(State& shared, const QStringList& lines)
{
    if (!isOurs() || lines.isEmpty()) {
        return true;
    }
    if (isTaken == 0) {
        take();
        shared.isTouched = true;
    }
    printHeldBackLines(shared);
    if (lines == shared.lines && !shared.isTouched) {
        return true;
    }
    shared.lines = lines;
    shared.isTouched = false;
    return writeAll(terminal, drawing(lines));
}

void giveBack(State& shared)
{
    if (isTaken == 0) {
        return;
    }
    const int below = shared.lines.size() - 1;
    const QByteArray down = below > 0 ? "\x1b[" + QByteArray::number(below) + 'B' : QByteArray();
    writeAll(terminal, down + nextLine + showCursor);
    isTaken = 0;
    restoreSettings();
}

winsize windowSize()
{
    winsize size = {};
    ::ioctl(terminal, TIOCGWINSZ, &size);
    return size;
}

} // namespace

namespace LiveTerminal {

bool isPossible()
{
    const QByteArray kind = qgetenv("TERM");
    return ::isatty(terminal) == 1 && !kind.isEmpty() && kind != "dumb";
}

int columns()
{
    const int count = windowSize().ws_col;
    return count > 0 ? count : 80;
}

int rows()
{
    const int count = windowSize().ws_row;
    return count > 0 ? count : 24;
}

bool show(const QStringList& lines)
{
    const std::lock_guard locker(state().mutex);
    return draw(state(), lines);
}

void touch()
{
    const std::lock_guard locker(state().mutex);
    state().isTouched = true;
}

void leave()
{
    const std::lock_guard locker(state().mutex);
    if (isTaken != 0) {
        draw(state(), state().lines);
        giveBack(state());
    }
}

void forget()
{
    const std::lock_guard locker(state().mutex);
    isTaken = 0;
    writeAll(STDERR_FILENO, state().heldBack);
    state().heldBack.clear();
}

bool finish(const QStringList& lines)
{
    const std::lock_guard locker(state().mutex);
    if (isOurs()) {
        state().isTouched = true;
        const bool written = draw(state(), lines);
        giveBack(state());
        return written;
    }
    return lines.isEmpty()
        || writeAll(terminal, lines.join(QLatin1String(nextLine)).toUtf8() + nextLine);
}

void setWake(const std::function<void()>& wake)
{
    const std::lock_guard locker(state().mutex);
    state().wake = wake;
}

bool holdBack(const QString& line)
{
    const std::lock_guard locker(state().mutex);
    const bool isTorn = isTaken != 0 && state().wake && ::isatty(STDERR_FILENO) == 1;
    if (isTorn) {
        state().heldBack += line.toUtf8() + '\n';
        state().wake();
    }
    return isTorn;
}

void printHeldBack()
{
    const std::lock_guard locker(state().mutex);
    printHeldBackLines(state());
}

void restoreAtOnce()
{
    if (isTaken != 0) {
        constexpr char bytes[] = "\x1b[999B\r\n\x1b[?25h"; // below whatever is shown
        const ssize_t written = ::write(terminal, bytes, sizeof bytes - 1);
        static_cast<void>(written);
        restoreSettings();
        isTaken = 0;
    }
}

} // namespace LiveTerminal
