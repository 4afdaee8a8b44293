#pragma once

#include <QObject>
#include <QSocketNotifier>

/// Brings SIGINT, SIGTERM and, where it is not ignored, SIGHUP into the event loop. The second
/// signal ends the program at once, even when the event loop is stuck. At most one object at a
/// time.
class SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatcher(QObject* parent = nullptr);

signals:
    void stopRequested(int signal);

private:
    void readPipe();

    QSocketNotifier m_notifier;
};
