#include "run/signal_watcher.h"

#include "terminal/live_terminal.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::array<int, 2> signalPipe{-1, -1};
volatile std::sig_atomic_t signalCount = 0;

// Runs in a signal handler: only calls that are safe there.
void handleSignal(int signal)
{
    if (signalCount > 0) {
        LiveTerminal::restoreAtOnce();
        ::_exit(128 + signal);
    }
    signalCount = 1;
    const char number = char(signal);
    const ssize_t written = ::write(signalPipe[1], &number, 1);
    static_cast<void>(written);
}

int openPipe()
{
    if (::pipe2(signalPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qFatal("cannot make a pipe for signals");
    }
    return signalPipe[0];
}

bool isIgnored(int signal)
{
    struct sigaction action = {};
    ::sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

void watch(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

} // namespace

SignalWatcher::SignalWatcher(QObject* parent)
    : QObject(parent), m_notifier(openPipe(), QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readPipe);
    watch(SIGINT, handleSignal);
    watch(SIGTERM, handleSignal);
    if (!isIgnored(SIGHUP)) { // else it was started by nohup, to outlive its terminal
        watch(SIGHUP, handleSignal);
    }
}

void SignalWatcher::readPipe()
{
    char signal = 0;
    if (::read(signalPipe[0], &signal, 1) == 1) {
        emit stopRequested(signal);
    }
}
