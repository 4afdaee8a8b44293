#include <common/signal_source.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

// What the signal handlers look at.
std::array<volatile std::sig_atomic_t, NSIG> pipeOf; // into which a signal's number is written
volatile SignalSource::BeforeEnd beforeSecond = nullptr;
volatile std::sig_atomic_t endingCount = 0;

// Only calls that are safe in a signal handler.
void tell(int signalNumber)
{
    const int error = errno;
    const char number = char(signalNumber);
    const ssize_t written = ::write(pipeOf[std::size_t(signalNumber)], &number, 1);
    static_cast<void>(written); // when it is full, there is enough to be read
    errno = error;
}

void tellOrEnd(int signalNumber)
{
    if (endingCount > 0) {
        beforeSecond();
        ::_exit(128 + signalNumber);
    }
    endingCount = 1;
    tell(signalNumber);
}

std::array<int, 2> openPipe()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qFatal("cannot make a pipe for signals");
    }
    return ends;
}

} // namespace

SignalSource::SignalSource(const std::vector<int>& signalNumbers, BeforeEnd beforeEnd)
    : m_pipe(openPipe()), m_notifier(m_pipe[0], QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, &SignalSource::readPipe);
    if (beforeEnd != nullptr) {
        beforeSecond = beforeEnd;
    }
    for (const int signalNumber : signalNumbers) {
        watch(signalNumber, beforeEnd != nullptr ? tellOrEnd : tell);
    }
}

SignalSource::~SignalSource()
{
    for (const auto& watched : m_before) {
        pipeOf[std::size_t(watched.first)] = -1;
    }
    m_notifier.setEnabled(false);
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
}

void SignalSource::watch(int signalNumber, void (*handler)(int))
{
    struct sigaction& before = m_before[signalNumber];
    ::sigaction(signalNumber, nullptr, &before);
    if (signalNumber == SIGHUP && before.sa_handler == SIG_IGN) {
        return; // it was started by nohup, to outlive its terminal
    }
    pipeOf[std::size_t(signalNumber)] = m_pipe[1];
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signalNumber, &action, nullptr);
}

void SignalSource::raiseAsBefore(int signalNumber)
{
    struct sigaction watching = {};
    ::sigaction(signalNumber, &m_before[signalNumber], &watching);
    ::raise(signalNumber);
    ::sigaction(signalNumber, &watching, nullptr);
}

void SignalSource::readPipe()
{
    char signalNumber = 0;
    while (::read(int(m_notifier.socket()), &signalNumber, 1) == 1) {
        emit arrived(signalNumber);
    }
}
