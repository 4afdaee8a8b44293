#include "termination_signals.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

TerminationSignals::TerminationSignals()
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGINT);
    sigaddset(&signalSet, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signalSet, nullptr);
    m_descriptor = signalfd(-1, &signalSet, SFD_CLOEXEC | SFD_NONBLOCK);
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &TerminationSignals::received);
}

TerminationSignals::~TerminationSignals()
{
    m_notifier.reset();
    close(m_descriptor);
}
