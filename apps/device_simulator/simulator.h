#pragma once

#include "options.h"
#include "simulator_server.h"

#include <QObject>
#include <QTimer>

class QTcpSocket;

/// The simulated device: its server, its moving registers and its log on standard error.
class Simulator : public QObject
{
    Q_OBJECT

public:
    explicit Simulator(const Options& options);

    /// Fills the registers and listens; says on standard output where, or on standard error why
    /// not.
    bool start();

private:
    void logTraffic();
    void logClient(const QTcpSocket& client, const QString& event) const;
    bool listen();

    const Options m_options;
    SimulatorServer m_server;
    QTimer m_timer;
    unsigned m_tick = 0;
};
