#include <plugin_management/dispatcher_timers_p.h>

#include <plugin_management/event_hub_p.h>

#include <QCoreApplication>
#include <QTimerEvent>

#include <algorithm>

namespace {

constexpr qint64 usPerMs = 1000;

} // namespace

void DispatcherTimers::add(int id, int intervalMs, Qt::TimerType type, QObject* object)
{
    const qint64 begunUs = intervalMs > 0 ? 1 : 0; // a microsecond of which a part had passed
    const qint64 dueUs = steadyNowUs() + begunUs + intervalMs * usPerMs;
    m_timers[id] = {intervalMs, type, object, dueUs, false};
    m_order.emplace(dueUs, id);
}

bool DispatcherTimers::remove(int id)
{
    const auto it = m_timers.find(id);
    if (it == m_timers.end()) {
        return false;
    }
    m_order.erase({it->second.dueUs, id});
    m_timers.erase(it);
    return true;
}

bool DispatcherTimers::removeAll(const QObject* object)
{
    bool found = false;
    for (const QAbstractEventDispatcher::TimerInfo& info : timersOf(object)) {
        found = remove(info.timerId) || found;
    }
    return found;
}

QList<QAbstractEventDispatcher::TimerInfo> DispatcherTimers::timersOf(const QObject* object) const
{
    QList<QAbstractEventDispatcher::TimerInfo> infos;
    for (const auto& [id, timer] : m_timers) {
        if (timer.object == object) {
            infos.append({id, timer.intervalMs, timer.type});
        }
    }
    return infos;
}

int DispatcherTimers::remainingMs(int id) const
{
    const auto it = m_timers.find(id);
    if (it == m_timers.end()) {
        return -1;
    }
    const qint64 leftUs = std::max<qint64>(0, it->second.dueUs - steadyNowUs());
    return static_cast<int>((leftUs + usPerMs - 1) / usPerMs);
}

int DispatcherTimers::fire()
{
    const qint64 nowUs = m_order.empty() ? 0 : steadyNowUs();
    int fired = 0;
    for (std::size_t left = m_order.size(); left > 0 && !m_order.empty(); --left) {
        const auto [dueUs, id] = *m_order.begin();
        if (dueUs > nowUs) {
            break;
        }
        fired += fireOne(id, m_timers.at(id), nowUs) ? 1 : 0;
    }
    return fired;
}

// Ticks that were missed are not made up for. A timer whose event is being handled, in a loop that
// this one is nested in, waits for its next tick.
bool DispatcherTimers::fireOne(int id, Timer& timer, qint64 nowUs)
{
    const qint64 intervalUs = timer.intervalMs * usPerMs;
    const qint64 nextUs = timer.dueUs + intervalUs;
    setDue(id, timer, nextUs < nowUs ? nowUs + intervalUs : nextUs);
    if (timer.firing) {
        return false;
    }
    timer.firing = true;
    QTimerEvent event(id);
    QCoreApplication::sendEvent(timer.object, &event);
    const auto it = m_timers.find(id); // the handler may have ended it
    if (it != m_timers.end()) {
        it->second.firing = false;
    }
    return true;
}

void DispatcherTimers::setDue(int id, Timer& timer, qint64 dueUs)
{
    m_order.erase({timer.dueUs, id});
    timer.dueUs = dueUs;
    m_order.emplace(dueUs, id);
}
