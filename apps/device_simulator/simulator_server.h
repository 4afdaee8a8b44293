#pragma once

#include <QModbusTcpServer>

/// Qt's Modbus TCP server as a device: it answers "report server id", which the plain server
/// refuses over TCP, and reports what clients write.
class SimulatorServer : public QModbusTcpServer
{
    Q_OBJECT

public:
    explicit SimulatorServer(QObject* parent = nullptr);

    /// The port that the server listens on, 0 while it does not listen.
    quint16 port() const;

signals:
    /// A client wrote \a unit. Refused writes are not reported.
    void written(const QModbusDataUnit& unit);

protected:
    QModbusResponse processRequest(const QModbusPdu& request) override;
    bool writeData(const QModbusDataUnit& unit) override;

private:
    bool m_answering = false;
};
