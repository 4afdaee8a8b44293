#pragma once

#include <plugin_management/fast_delegate.h>

#include <QBasicTimer>
#include <QObject>
#include <QSocketNotifier>

#include <chrono>
#include <limits>
#include <map>
#include <memory>
#include <vector>

class BeforeSleep;
class Deadline;
class Spin;
class Step;

/// Microseconds of a clock that never goes back.
inline qint64 steadyNowUs()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

/// The descriptors and deadlines of all workers of one thread, behind one notifier and one timer of
/// its event loop, whichever that is: what the loop costs does not grow with the number of devices.
class Reactor final : public QObject, public std::enable_shared_from_this<Reactor>
{
public:
    /// Is called with what the descriptor is ready for (EPOLLIN, EPOLLHUP, ...).
    using Handler = fastdelegate::Delegate<void, quint32>;

    /// The reactor of the calling thread. It lives as long as somebody holds it.
    static std::shared_ptr<Reactor> ofThisThread();

    Reactor();
    ~Reactor() override;
    Q_DISABLE_COPY(Reactor)

    /// Calls \a handler whenever \a descriptor is ready for \a events, for as long as it is. The
    /// handler may watch and unwatch, and run an event loop. False, with errno, when the system
    /// refuses.
    bool watch(int descriptor, quint32 events, const Handler& handler);
    /// Changes what a watched descriptor is waited for.
    bool change(int descriptor, quint32 events);
    /// Does nothing for one that is not watched.
    void unwatch(int descriptor);

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    friend class BeforeSleep;
    friend class Deadline;
    friend class Spin;
    friend class Step;
    using Deadlines = std::multimap<qint64, Deadline*>; ///< of one time in order of setting

    struct Watched
    {
        Handler handler;
        quint32 generation = 0; ///< tells a descriptor from an earlier one of the same number
    };

    bool control(int operation, int descriptor, quint32 events) const;
    void callReady();
    void call(int descriptor, quint32 generation, quint32 events);

    bool gathersSteps() const { return m_gathersSteps; }
    bool hasSteps() const { return m_nextStep < m_steps.size(); }
    void makeStep(Step* one);
    void makeSteps();
    void forget(Step* one);

    Deadlines::iterator schedule(qint64 dueUs, Deadline* deadline);
    void cancel(Deadlines::iterator place) { m_deadlines.erase(place); }
    void startTimer(qint64 dueUs, qint64 nowUs);
    void startForFirst(qint64 nowUs);

    std::vector<Watched> m_watched; ///< by descriptor
    int m_poll;
    int m_count = 0;
    int m_newest = -1;
    quint32 m_generation = 0;
    std::unique_ptr<QSocketNotifier> m_notifier;

    void callBeforeSleep(BeforeSleep* one);
    void forget(const BeforeSleep* one);
    void spinBeforeSleep(Spin* one);
    void forget(const Spin* one);
    void hearOfSleep();
    void loopSleeps();

    std::vector<Step*> m_steps; ///< first in, first out, from m_nextStep on; null: forgotten
    std::size_t m_nextStep = 0;
    bool m_gathersSteps = false;
    std::vector<BeforeSleep*> m_beforeSleep;
    std::vector<Spin*> m_spins; ///< expected since the loop slept last
    QMetaObject::Connection m_sleep; ///< of the thread's event loop
    Deadlines m_deadlines;
    QBasicTimer m_timer;
    qint64 m_startedForUs = std::numeric_limits<qint64>::max();
};
