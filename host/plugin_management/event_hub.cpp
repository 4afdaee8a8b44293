#include <plugin_management/event_hub_p.h>

#include <plugin_management/d_event_dispatcher.h>
#include <plugin_management/lazy_timer_p.h>

#include <QEvent>

#include <sys/epoll.h>

#include <algorithm>

namespace {

/// Tells a set of sockets, under an event loop that is not ours, that one of them is ready.
class PollNotifier final : public QSocketNotifier
{
public:
    explicit PollNotifier(const std::shared_ptr<SocketPoll>& sockets)
        : QSocketNotifier(sockets->descriptor(), Read), m_sockets(sockets)
    {
    }

protected:
    bool event(QEvent* event) override
    {
        if (event->type() != QEvent::SockAct) {
            return QSocketNotifier::event(event);
        }
        const std::shared_ptr<SocketPoll> keep = m_sockets; // a handler may end this notifier
        keep->callReady();
        return true;
    }

private:
    std::shared_ptr<SocketPoll> m_sockets;
};

} // namespace

EventHub::EventHub()
{
    if (auto* loop = dynamic_cast<DEventDispatcher*>(QAbstractEventDispatcher::instance())) {
        m_sockets = loop->socketPoll();
    } else {
        m_sockets = std::make_shared<SocketPoll>();
        m_notifier = std::make_unique<PollNotifier>(m_sockets);
    }
}

EventHub::~EventHub() = default;

std::shared_ptr<EventHub> EventHub::ofThisThread()
{
    thread_local std::weak_ptr<EventHub> hubOfThread;
    std::shared_ptr<EventHub> hub = hubOfThread.lock();
    if (!hub) {
        hub = std::make_shared<EventHub>();
        hubOfThread = hub;
    }
    return hub;
}

bool EventHub::watch(int descriptor, const SocketPoll::Handler& readable)
{
    return m_sockets->watch(descriptor, EPOLLIN, readable);
}

void EventHub::unwatch(int descriptor) { m_sockets->unwatch(descriptor); }

EventHub::Timers::iterator EventHub::schedule(qint64 dueMs, LazyTimer* timer)
{
    if (dueMs < m_startedForMs) {
        startTimer(dueMs, steadyNowMs());
    }
    return m_timers.emplace(dueMs, timer).first;
}

void EventHub::startTimer(qint64 dueMs, qint64 nowMs)
{
    m_startedForMs = dueMs;
    m_timer.start(static_cast<int>(std::max<qint64>(0, dueMs - nowMs)), Qt::PreciseTimer, this);
}

void EventHub::timerEvent(QTimerEvent* event)
{
    Q_UNUSED(event)
    const std::shared_ptr<EventHub> keep = shared_from_this();
    m_timer.stop();
    m_startedForMs = std::numeric_limits<qint64>::max();
    const qint64 nowMs = steadyNowMs();
    // As many as there are now: one that is due again at once must not keep the loop from others.
    for (std::size_t left = m_timers.size(); left > 0 && !m_timers.empty(); --left) {
        const auto first = m_timers.begin();
        if (first->first > nowMs) {
            break;
        }
        LazyTimer* timer = first->second;
        m_timers.erase(first);
        startForFirst(nowMs); // the handler may run a loop of its own, in which the others fire
        timer->wake(nowMs);
    }
    startForFirst(nowMs);
}

void EventHub::startForFirst(qint64 nowMs)
{
    if (!m_timers.empty() && m_timers.begin()->first < m_startedForMs) {
        startTimer(m_timers.begin()->first, nowMs);
    }
}
