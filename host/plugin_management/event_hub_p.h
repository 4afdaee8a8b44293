#pragma once

#include <plugin_management/socket_poll_p.h>

#include <QBasicTimer>
#include <QObject>
#include <QSocketNotifier>

#include <chrono>
#include <limits>
#include <memory>
#include <set>
#include <utility>

class LazyTimer;

/// Microseconds of a clock that never goes back.
inline qint64 steadyNowUs()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

inline qint64 steadyNowMs() { return steadyNowUs() / 1000; }

/// The timers and sockets of all workers of one thread, behind one timer and one descriptor of its
/// event loop: what the loop costs does not grow with the number of devices.
class EventHub final : public QObject, public std::enable_shared_from_this<EventHub>
{
public:
    /// The hub of the calling thread. It lives as long as somebody holds it.
    static std::shared_ptr<EventHub> ofThisThread();

    EventHub();
    ~EventHub() override;
    Q_DISABLE_COPY(EventHub)

    /// Calls \a readable whenever there is something to read from \a descriptor, or its end, for as
    /// long as that is so. False, with errno, when the system refuses.
    bool watch(int descriptor, const SocketPoll::Handler& readable);
    void unwatch(int descriptor);

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    friend class LazyTimer;
    using Timers = std::set<std::pair<qint64, LazyTimer*>>;

    Timers::iterator schedule(qint64 dueMs, LazyTimer* timer);
    void cancel(Timers::iterator place) { m_timers.erase(place); }
    void startTimer(qint64 dueMs, qint64 nowMs);
    void startForFirst(qint64 nowMs);

    Timers m_timers;
    QBasicTimer m_timer;
    qint64 m_startedForMs = std::numeric_limits<qint64>::max();

    std::shared_ptr<SocketPoll> m_sockets; ///< the event loop's own, if it has such a set
    std::unique_ptr<QSocketNotifier> m_notifier; ///< wakes the set, if it has none
};
