#pragma once

#include "options.h"
#include "simulator_server.h"
#include "spoiling_proxy.h"

#include <QObject>
#include <QTimer>

#include <memory>

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
    bool listenBehindProxy();
    bool refused(const QString& why) const;
    quint16 port() const;

    const Options m_options;
    SimulatorServer m_server;
    std::unique_ptr<SpoilingProxy>
        m_proxy; ///< between clients and server when the device misbehaves
    QTimer m_timer;
    unsigned m_tick = 0;
};
