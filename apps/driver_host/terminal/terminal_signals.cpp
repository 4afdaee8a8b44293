#include "terminal/terminal_signals.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

sigset_t setOf(std::initializer_list<int> numbers)
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : numbers) {
        ::sigaddset(&set, signal);
    }
    return set;
}

int blockAndOpen()
{
    const sigset_t set = setOf({SIGTSTP, SIGCONT, SIGWINCH});
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const int file = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (file < 0) {
        qFatal("cannot make a file for signals");
    }
    return file;
}

} // namespace

TerminalSignals::TerminalSignals(QObject* parent)
    : QObject(parent), m_notifier(blockAndOpen(), QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, &TerminalSignals::read);
}

TerminalSignals::~TerminalSignals()
{
    m_notifier.setEnabled(false);
    ::close(int(m_notifier.socket()));
    const sigset_t set = setOf({SIGTSTP, SIGCONT, SIGWINCH});
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

// SIGTSTP and not SIGSTOP, which would stop a program that no shell looks after for good.
void TerminalSignals::stopProgram()
{
    const sigset_t set = setOf({SIGTSTP});
    ::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void TerminalSignals::read()
{
    signalfd_siginfo info = {};
    while (::read(int(m_notifier.socket()), &info, sizeof info) == ssize_t(sizeof info)) {
        switch (int(info.ssi_signo)) {
        case SIGTSTP:
            emit suspended();
            break;
        case SIGCONT:
            emit resumed();
            break;
        default:
            emit resized();
        }
    }
}
