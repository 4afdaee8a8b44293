#pragma once

#include <QAbstractEventDispatcher>

#include <set>
#include <unordered_map>
#include <utility>

/// The timers of an event dispatcher, in the order in which they fall due. Times are microseconds
/// of the steady clock.
class DispatcherTimers
{
public:
    void add(int id, int intervalMs, Qt::TimerType type, QObject* object);
    bool remove(int id);
    bool removeAll(const QObject* object);
    QList<QAbstractEventDispatcher::TimerInfo> timersOf(const QObject* object) const;

    /// When the first one falls due, -1 when there is none.
    qint64 firstDueUs() const { return m_order.empty() ? -1 : m_order.begin()->first; }
    /// Until a timer falls due, rounded up; -1 for an id that is none.
    int remainingMs(int id) const;
    /// Sends their events to those that are due; each once at the most. Returns how many.
    int fire();

private:
    struct Timer
    {
        int intervalMs;
        Qt::TimerType type;
        QObject* object;
        qint64 dueUs;
        bool firing;
    };

    void setDue(int id, Timer& timer, qint64 dueUs);
    bool fireOne(int id, Timer& timer, qint64 nowUs);

    std::unordered_map<int, Timer> m_timers;
    std::set<std::pair<qint64, int>> m_order;
};
