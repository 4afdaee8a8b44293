#pragma once

#include <QSocketNotifier>

#include <memory>

/// Turns SIGINT and SIGTERM into a Qt signal. Make it before any other thread starts: it blocks
/// both for the threads that follow.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    TerminationSignals();
    ~TerminationSignals() override;
    Q_DISABLE_COPY_MOVE(TerminationSignals)

signals:
    void received();

private:
    int m_descriptor = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
