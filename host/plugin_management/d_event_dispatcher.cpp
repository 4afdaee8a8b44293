#include <plugin_management/d_event_dispatcher.h>

#include <plugin_management/dispatcher_timers_p.h>
#include <plugin_management/event_hub_p.h>
#include <plugin_management/socket_poll_p.h>

#include <QCoreApplication>
#include <QSocketNotifier>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <limits>
#include <unordered_map>

namespace {

// What a notifier waits for, by its type; an error or a hang-up concerns every type.
constexpr std::array<quint32, 3> eventsOfType{EPOLLIN, EPOLLOUT, EPOLLPRI};
constexpr quint32 eventsOfAll = EPOLLHUP | EPOLLERR;
constexpr quint32 always = EPOLLIN | EPOLLOUT;

/// The notifiers of one descriptor, one of each type at the most.
class Notifiers : public std::enable_shared_from_this<Notifiers>
{
public:
    QSocketNotifier*& ofType(int type) { return m_byType[static_cast<std::size_t>(type)]; }

    quint32 wantedEvents() const
    {
        quint32 events = 0;
        for (std::size_t type = 0; type < m_byType.size(); ++type) {
            events |= m_byType[type] != nullptr ? eventsOfType[type] : 0;
        }
        return events;
    }

    void handle(quint32 events)
    {
        const auto keep = shared_from_this(); // a handler may remove them all
        for (std::size_t type = 0; type < m_byType.size(); ++type) {
            if (m_byType[type] != nullptr && (events & (eventsOfType[type] | eventsOfAll)) != 0) {
                QEvent event(QEvent::SockAct);
                QCoreApplication::sendEvent(m_byType[type], &event);
            }
        }
    }

private:
    std::array<QSocketNotifier*, 3> m_byType{};
};

} // namespace

class DEventDispatcher::Private
{
public:
    Private();
    ~Private() { ::close(wakeDescriptor); }

    void addNotifier(QSocketNotifier* notifier);
    void removeNotifier(QSocketNotifier* notifier);
    int limitMs(bool mayWait, bool withTimers) const;
    int waitForSockets(int limitMs);
    void waitForWakeUp(int limitMs) const;
    void takeWakeUp(quint32 events);

    const std::shared_ptr<SocketPoll> sockets = std::make_shared<SocketPoll>();
    DispatcherTimers timers;
    int wakeDescriptor;
    // Written by other threads. Whoever has work for this one sets "wanted", and writes to the
    // descriptor only when this thread may be asleep.
    std::atomic<bool> wanted{false};
    std::atomic<bool> asleep{false};

private:
    std::unordered_map<int, std::shared_ptr<Notifiers>> m_notifiers;
    std::vector<int> m_files; ///< descriptors that are always ready, which cannot be waited for
};

DEventDispatcher::Private::Private() : wakeDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (wakeDescriptor < 0
        || !sockets->watch(wakeDescriptor, EPOLLIN, {this, &Private::takeWakeUp})) {
        qFatal("no descriptor left for an event loop");
    }
}

void DEventDispatcher::Private::takeWakeUp(quint32 events)
{
    Q_UNUSED(events)
    eventfd_t count = 0;
    ::eventfd_read(wakeDescriptor, &count);
}

void DEventDispatcher::Private::addNotifier(QSocketNotifier* notifier)
{
    const auto descriptor = static_cast<int>(notifier->socket());
    std::shared_ptr<Notifiers>& all = m_notifiers[descriptor];
    const bool isNew = !all;
    if (isNew) {
        all = std::make_shared<Notifiers>();
    }
    all->ofType(notifier->type()) = notifier;
    if (!isNew) {
        sockets->change(descriptor, all->wantedEvents());
    } else if (!sockets->watch(descriptor, all->wantedEvents(), {all.get(), &Notifiers::handle})) {
        if (errno == EPERM) {
            m_files.push_back(descriptor);
        } else {
            qWarning("descriptor %d cannot be waited for: %s", descriptor,
                     qPrintable(qt_error_string(errno)));
        }
    }
}

void DEventDispatcher::Private::removeNotifier(QSocketNotifier* notifier)
{
    const auto descriptor = static_cast<int>(notifier->socket());
    const auto it = m_notifiers.find(descriptor);
    if (it == m_notifiers.end() || it->second->ofType(notifier->type()) != notifier) {
        return;
    }
    it->second->ofType(notifier->type()) = nullptr;
    const quint32 left = it->second->wantedEvents();
    const auto file = std::find(m_files.begin(), m_files.end(), descriptor);
    if (left != 0) {
        sockets->change(descriptor, left);
        return;
    }
    m_notifiers.erase(it);
    if (file != m_files.end()) {
        m_files.erase(file);
    } else {
        sockets->unwatch(descriptor);
    }
}

// How long to sleep: 0 when there is something to do already, -1 for as long as nothing comes.
int DEventDispatcher::Private::limitMs(bool mayWait, bool withTimers) const
{
    if (!mayWait || wanted || !m_files.empty()) {
        return 0;
    }
    const qint64 dueUs = withTimers ? timers.firstDueUs() : -1;
    if (dueUs < 0) {
        return -1;
    }
    const qint64 leftMs = (std::max<qint64>(0, dueUs - steadyNowUs()) + 999) / 1000;
    return static_cast<int>(std::min<qint64>(leftMs, std::numeric_limits<int>::max()));
}

int DEventDispatcher::Private::waitForSockets(int limitMs)
{
    int called = sockets->wait(limitMs);
    const std::vector<int> files = m_files;
    for (const int descriptor : files) {
        const auto it = m_notifiers.find(descriptor);
        if (it != m_notifiers.end()) {
            it->second->handle(always);
            ++called;
        }
    }
    return called;
}

void DEventDispatcher::Private::waitForWakeUp(int limitMs) const
{
    pollfd wake{wakeDescriptor, POLLIN, 0};
    ::poll(&wake, 1, limitMs);
}

DEventDispatcher::DEventDispatcher(QObject* parent)
    : QAbstractEventDispatcher(parent), d(new Private)
{
}

DEventDispatcher::~DEventDispatcher() = default;

const std::shared_ptr<SocketPoll>& DEventDispatcher::socketPoll() const { return d->sockets; }

bool DEventDispatcher::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    const bool withTimers = !(flags & QEventLoop::X11ExcludeTimers);
    const bool withSockets = !(flags & QEventLoop::ExcludeSocketNotifiers);
    emit awake();
    const bool wanted = d->wanted.exchange(false); // what comes from here on is for the next turn
    QCoreApplication::sendPostedEvents();
    const bool mayWait = (flags & QEventLoop::WaitForMoreEvents) && !wanted;
    if (mayWait) {
        emit aboutToBlock();
    }
    d->asleep = mayWait;
    const int limitMs = d->limitMs(mayWait, withTimers);
    int handled = 0;
    if (withSockets) {
        handled = d->waitForSockets(limitMs);
    } else {
        d->waitForWakeUp(limitMs);
    }
    d->asleep = false;
    handled += withTimers ? d->timers.fire() : 0;
    return handled > 0 || wanted;
}

bool DEventDispatcher::hasPendingEvents()
{
    const qint64 dueUs = d->timers.firstDueUs();
    return d->wanted || (dueUs >= 0 && dueUs <= steadyNowUs()) || d->sockets->isAnyReady();
}

void DEventDispatcher::registerSocketNotifier(QSocketNotifier* notifier)
{
    d->addNotifier(notifier);
}

void DEventDispatcher::unregisterSocketNotifier(QSocketNotifier* notifier)
{
    d->removeNotifier(notifier);
}

void DEventDispatcher::registerTimer(int timerId, int interval, Qt::TimerType type, QObject* object)
{
    d->timers.add(timerId, interval, type, object);
}

bool DEventDispatcher::unregisterTimer(int timerId) { return d->timers.remove(timerId); }

bool DEventDispatcher::unregisterTimers(QObject* object) { return d->timers.removeAll(object); }

QList<QAbstractEventDispatcher::TimerInfo> DEventDispatcher::registeredTimers(QObject* object) const
{
    return d->timers.timersOf(object);
}

int DEventDispatcher::remainingTime(int timerId) { return d->timers.remainingMs(timerId); }

void DEventDispatcher::wakeUp()
{
    if (!d->wanted.exchange(true) && d->asleep) {
        ::eventfd_write(d->wakeDescriptor, 1);
    }
}

void DEventDispatcher::interrupt() { wakeUp(); }

void DEventDispatcher::flush() { }
