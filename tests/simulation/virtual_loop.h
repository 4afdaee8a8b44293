#pragma once

#include <QAbstractEventDispatcher>
#include <QVector>

#include <map>
#include <vector>

/// The event loop of a thread under a world's time: when nothing is to be done, time passes to what
/// comes next. Of what is ready, the world's chance says what comes first, as it is with a real
/// one.
class VirtualLoop final : public QAbstractEventDispatcher
{
    Q_OBJECT

public:
    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override { return m_isWoken; }
    void registerSocketNotifier(QSocketNotifier* notifier) override;
    void unregisterSocketNotifier(QSocketNotifier* notifier) override;
    void registerTimer(int id, int intervalMs, Qt::TimerType type, QObject* object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject* object) override;
    QList<TimerInfo> registeredTimers(QObject* object) const override;
    int remainingTime(int id) override;
    void wakeUp() override { m_isWoken = true; }
    void interrupt() override { m_isInterrupted = true; }
    void flush() override { }

private:
    struct Timer
    {
        int intervalMs;
        qint64 dueUs;
        QObject* object;
    };

    bool callReady();
    bool callNotifiers();
    bool callTimers();
    qint64 firstDueUs() const;

    std::vector<QSocketNotifier*> m_notifiers;
    std::map<int, Timer> m_timers;
    bool m_isWoken = false;
    bool m_isInterrupted = false;
};
