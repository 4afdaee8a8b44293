#pragma once

#include <plugin_management/plugin_management_global.h>

#include <QAbstractEventDispatcher>

#include <memory>

class SocketPoll;

/// An event loop's dispatcher whose turn costs the same for a thousand devices as for one.
///
/// A host need not have it: workers run under any dispatcher, at a higher price for each order. It
/// is installed before the application object is made, with QCoreApplication::setEventDispatcher(),
/// or for another thread with QThread::setEventDispatcher(). All timers are precise ones.
class HOST_PLUGIN_MANAGEMENT_EXPORT DEventDispatcher : public QAbstractEventDispatcher
{
    Q_OBJECT

public:
    explicit DEventDispatcher(QObject* parent = nullptr);
    ~DEventDispatcher() override;

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override;

    void registerSocketNotifier(QSocketNotifier* notifier) override;
    void unregisterSocketNotifier(QSocketNotifier* notifier) override;

    void registerTimer(int timerId, int interval, Qt::TimerType type, QObject* object) override;
    bool unregisterTimer(int timerId) override;
    bool unregisterTimers(QObject* object) override;
    QList<TimerInfo> registeredTimers(QObject* object) const override;
    int remainingTime(int timerId) override;

    void wakeUp() override;
    void interrupt() override;
    void flush() override;

private:
    friend class EventHub;
    const std::shared_ptr<SocketPoll>& socketPoll() const;

    class Private;
    std::unique_ptr<Private> d;
};
