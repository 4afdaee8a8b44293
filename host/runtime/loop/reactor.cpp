#include <runtime/loop/reactor.h>

#include <runtime/loop/before_sleep.h>
#include <runtime/loop/deadline.h>
#include <runtime/loop/spin.h>
#include <runtime/loop/step.h>

#include <QAbstractEventDispatcher>
#include <QEvent>

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

constexpr std::size_t readyAtOnce = 64;

std::size_t index(int descriptor) { return static_cast<std::size_t>(descriptor); }

template <typename One>
void removeFrom(std::vector<One*>& all, const One* one)
{
    all.erase(std::remove(all.begin(), all.end(), one), all.end());
}

/// Calls the reactor without the signal that a notifier else sends for each time.
class PollNotifier final : public QSocketNotifier
{
public:
    using Ready = fastdelegate::Delegate<void>;

    PollNotifier(int poll, const Ready& ready) : QSocketNotifier(poll, Read), m_ready(ready) { }

protected:
    bool event(QEvent* event) override
    {
        if (event->type() != QEvent::SockAct) {
            return QSocketNotifier::event(event);
        }
        m_ready();
        return true;
    }

private:
    Ready m_ready;
};

} // namespace

// Without a descriptor for it, watch() refuses, and each link tells why it cannot be opened.
Reactor::Reactor() : m_poll(::epoll_create1(EPOLL_CLOEXEC))
{
    if (m_poll >= 0) {
        m_notifier =
            std::make_unique<PollNotifier>(m_poll, PollNotifier::Ready(this, &Reactor::callReady));
    }
}

Reactor::~Reactor()
{
    m_notifier.reset();
    if (m_poll >= 0) {
        ::close(m_poll);
    }
}

std::shared_ptr<Reactor> Reactor::ofThisThread()
{
    thread_local std::weak_ptr<Reactor> reactorOfThread;
    std::shared_ptr<Reactor> reactor = reactorOfThread.lock();
    if (!reactor) {
        reactor = std::make_shared<Reactor>();
        reactorOfThread = reactor;
    }
    return reactor;
}

// --- descriptors ---

bool Reactor::control(int operation, int descriptor, quint32 events) const
{
    epoll_event event{};
    event.events = events;
    event.data.u64 =
        quint64{m_watched[index(descriptor)].generation} << 32 | static_cast<quint32>(descriptor);
    return ::epoll_ctl(m_poll, operation, descriptor, &event) == 0;
}

bool Reactor::watch(int descriptor, quint32 events, const Handler& handler)
{
    if (m_poll < 0) {
        errno = EMFILE; // why there is none
        return false;
    }
    if (index(descriptor) >= m_watched.size()) {
        m_watched.resize(index(descriptor) + 1);
    }
    m_watched[index(descriptor)] = {handler, ++m_generation};
    if (!control(EPOLL_CTL_ADD, descriptor, events)) {
        m_watched[index(descriptor)] = {};
        return false;
    }
    m_newest = descriptor;
    ++m_count;
    return true;
}

bool Reactor::change(int descriptor, quint32 events)
{
    return control(EPOLL_CTL_MOD, descriptor, events);
}

void Reactor::unwatch(int descriptor)
{
    const bool isWatched =
        index(descriptor) < m_watched.size() && !m_watched[index(descriptor)].handler.empty();
    if (!isWatched) {
        return;
    }
    control(EPOLL_CTL_DEL, descriptor, 0);
    m_watched[index(descriptor)] = {};
    --m_count;
}

// What is ready and not among these comes first the next time: the system goes round.
void Reactor::callReady()
{
    const std::shared_ptr<Reactor> keep = shared_from_this(); // a handler may let go of it
    makeSteps(); // of whoever called the loop that this is
    if (m_count == 1 && !m_watched[index(m_newest)].handler.empty()) {
        // Of a single descriptor the system need not be asked: one call of five for an order.
        call(m_newest, m_watched[index(m_newest)].generation, EPOLLIN | EPOLLOUT);
        return;
    }
    std::array<epoll_event, readyAtOnce> ready;
    const int count = ::epoll_wait(m_poll, ready.data(), static_cast<int>(ready.size()), 0);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = ready[index(i)];
        m_gathersSteps = count > 1; // each time anew, as a handler's loop comes by here as well
        call(static_cast<int>(event.data.u64 & 0xFFFFFFFF),
             static_cast<quint32>(event.data.u64 >> 32), event.events);
    }
    m_gathersSteps = false;
    makeSteps();
}

// What an earlier handler did may have ended this descriptor, and given its number to another.
void Reactor::call(int descriptor, quint32 generation, quint32 events)
{
    const Watched& watched = m_watched[index(descriptor)];
    if (watched.generation == generation && !watched.handler.empty()) {
        const Handler handler = watched.handler;
        handler(events);
    }
}

// --- steps ---

void Reactor::makeStep(Step* one)
{
    if (m_steps.empty()) {
        hearOfSleep();
    }
    m_steps.push_back(one);
}

void Reactor::makeSteps()
{
    while (hasSteps()) {
        Step* next = m_steps[m_nextStep++];
        if (next != nullptr) {
            next->come();
        }
    }
    m_steps.clear();
    m_nextStep = 0;
}

void Reactor::forget(Step* one)
{
    std::replace(m_steps.begin(), m_steps.end(), one, static_cast<Step*>(nullptr));
}

// --- deadlines ---

Reactor::Deadlines::iterator Reactor::schedule(qint64 dueUs, Deadline* deadline)
{
    if (dueUs < m_startedForUs) {
        startTimer(dueUs, steadyNowUs());
    }
    return m_deadlines.emplace(dueUs, deadline);
}

void Reactor::startTimer(qint64 dueUs, qint64 nowUs)
{
    constexpr qint64 usPerMs = 1000;
    m_startedForUs = dueUs;
    const qint64 leftMs = (std::max<qint64>(0, dueUs - nowUs) + usPerMs - 1) / usPerMs;
    m_timer.start(static_cast<int>(leftMs), Qt::PreciseTimer, this);
}

void Reactor::timerEvent(QTimerEvent* event)
{
    Q_UNUSED(event)
    const std::shared_ptr<Reactor> keep = shared_from_this();
    makeSteps();
    m_timer.stop();
    m_startedForUs = std::numeric_limits<qint64>::max();
    const qint64 nowUs = steadyNowUs();
    // As many as there are now: one that is due again at once must not keep the loop from others.
    for (std::size_t left = m_deadlines.size(); left > 0 && !m_deadlines.empty(); --left) {
        const auto first = m_deadlines.begin();
        if (first->first > nowUs) {
            break;
        }
        Deadline* deadline = first->second;
        m_deadlines.erase(first);
        startForFirst(nowUs); // the handler may run a loop of its own, in which the others come
        deadline->come(nowUs);
    }
    startForFirst(nowUs);
}

void Reactor::startForFirst(qint64 nowUs)
{
    if (!m_deadlines.empty() && m_deadlines.begin()->first < m_startedForUs) {
        startTimer(m_deadlines.begin()->first, nowUs);
    }
}

// --- before sleep ---

void Reactor::hearOfSleep()
{
    if (!m_sleep) {
        m_sleep = connect(QAbstractEventDispatcher::instance(),
                          &QAbstractEventDispatcher::aboutToBlock, this, &Reactor::loopSleeps);
    }
}

void Reactor::callBeforeSleep(BeforeSleep* one)
{
    hearOfSleep();
    m_beforeSleep.push_back(one);
}

void Reactor::forget(const BeforeSleep* one) { removeFrom(m_beforeSleep, one); }

void Reactor::spinBeforeSleep(Spin* one)
{
    hearOfSleep();
    m_spins.push_back(one);
}

void Reactor::forget(const Spin* one) { removeFrom(m_spins, one); }

void Reactor::loopSleeps()
{
    if (m_beforeSleep.empty() && m_spins.empty() && !hasSteps()) {
        return;
    }
    const std::shared_ptr<Reactor> keep = shared_from_this(); // a handler may let go of it
    makeSteps();
    while (!m_beforeSleep.empty()) {
        BeforeSleep* last = m_beforeSleep.back();
        m_beforeSleep.pop_back();
        last->come();
    }
    if (!m_spins.empty()) {
        Spin::spin(m_spins, m_poll);
        m_spins.clear();
    }
}
