#include "virtual_loop.h"

#include "network.h"
#include "world.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSocketNotifier>

#include <algorithm>

namespace {

constexpr qint64 usPerMs = 1000;
constexpr int longestTurnUs = 40;
constexpr int slowTurnUs = 5000;
constexpr int slowTurns = 500; // one in so many

} // namespace

bool VirtualLoop::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    m_isInterrupted = false;
    emit awake();
    m_isWoken = false;
    QCoreApplication::sendPostedEvents();
    World& world = *World::current();
    const int tookUs = world.chance().oneIn(slowTurns) ? slowTurnUs : longestTurnUs;
    world.passTo(world.nowUs() + world.chance().below(tookUs));
    world.holdUp();
    if (callReady() || m_isWoken || m_isInterrupted) {
        return true;
    }
    if (!flags.testFlag(QEventLoop::WaitForMoreEvents)) {
        return false;
    }
    emit aboutToBlock();
    if (m_isWoken || m_isInterrupted) {
        return true;
    }
    world.passTo(std::max(world.nowUs(), std::min(firstDueUs(), world.nextUs())));
    emit awake();
    callReady();
    return true;
}

bool VirtualLoop::callReady()
{
    if (World::current()->chance().oneIn(2)) {
        const bool called = callNotifiers();
        return callTimers() || called;
    }
    const bool called = callTimers();
    return callNotifiers() || called;
}

bool VirtualLoop::callNotifiers()
{
    bool called = false;
    const std::vector<QSocketNotifier*> notifiers = m_notifiers;
    for (QSocketNotifier* notifier : notifiers) {
        const bool isThere =
            std::find(m_notifiers.begin(), m_notifiers.end(), notifier) != m_notifiers.end();
        if (isThere && Network::current()->isPollReady(static_cast<int>(notifier->socket()))) {
            QEvent event(QEvent::SockAct);
            QCoreApplication::sendEvent(notifier, &event);
            called = true;
        }
    }
    return called;
}

// Timers of Qt are due by the millisecond or later, never before.
bool VirtualLoop::callTimers()
{
    std::vector<int> due;
    for (const auto& [id, timer] : m_timers) {
        if (timer.dueUs <= World::current()->nowUs()) {
            due.push_back(id);
        }
    }
    for (const int id : due) {
        const auto it = m_timers.find(id);
        if (it == m_timers.end()) {
            continue;
        }
        it->second.dueUs = World::current()->nowUs() + it->second.intervalMs * usPerMs;
        QTimerEvent event(id);
        QCoreApplication::sendEvent(it->second.object, &event);
    }
    return !due.empty();
}

qint64 VirtualLoop::firstDueUs() const
{
    qint64 first = World::never;
    for (const auto& [id, timer] : m_timers) {
        first = std::min(first, timer.dueUs);
    }
    return first;
}

void VirtualLoop::registerSocketNotifier(QSocketNotifier* notifier)
{
    m_notifiers.push_back(notifier);
}

void VirtualLoop::unregisterSocketNotifier(QSocketNotifier* notifier)
{
    m_notifiers.erase(std::remove(m_notifiers.begin(), m_notifiers.end(), notifier),
                      m_notifiers.end());
}

void VirtualLoop::registerTimer(int id, int intervalMs, Qt::TimerType /*type*/, QObject* object)
{
    const World* world = World::current();
    const qint64 nowUs = world != nullptr ? world->nowUs() : 0;
    m_timers[id] = {intervalMs, nowUs + intervalMs * usPerMs, object};
}

bool VirtualLoop::unregisterTimer(int id) { return m_timers.erase(id) > 0; }

bool VirtualLoop::unregisterTimers(QObject* object)
{
    for (auto it = m_timers.begin(); it != m_timers.end();) {
        it = it->second.object == object ? m_timers.erase(it) : std::next(it);
    }
    return true;
}

QList<QAbstractEventDispatcher::TimerInfo> VirtualLoop::registeredTimers(QObject* object) const
{
    QList<TimerInfo> infos;
    for (const auto& [id, timer] : m_timers) {
        if (timer.object == object) {
            infos.append(TimerInfo(id, timer.intervalMs, Qt::PreciseTimer));
        }
    }
    return infos;
}

int VirtualLoop::remainingTime(int id)
{
    const auto it = m_timers.find(id);
    return it == m_timers.end()
        ? -1
        : static_cast<int>((it->second.dueUs - World::current()->nowUs()) / usPerMs);
}
