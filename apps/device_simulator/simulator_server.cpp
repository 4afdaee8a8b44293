#include "simulator_server.h"
#include "register_text.h"

#include <QScopedValueRollback>
#include <QTcpServer>

namespace {

constexpr int UnitId = 0;
constexpr char DeviceId = 0x01;
constexpr char Running = '\xFF';

QModbusResponse serverIdResponse()
{
    QByteArray content;
    content.append(DeviceId).append(Running).append("device-simulator " SIMULATOR_VERSION);
    content.prepend(static_cast<char>(content.size()));
    return QModbusResponse(QModbusPdu::ReportServerId, content);
}

} // namespace

SimulatorServer::SimulatorServer(QObject* parent) : QModbusTcpServer(parent)
{
    // The server is silent to every other unit, and a client of a plain TCP device asks unit 0.
    setServerAddress(UnitId);
    QModbusDataUnitMap map;
    for (const auto table : {QModbusDataUnit::Coils, QModbusDataUnit::DiscreteInputs,
                             QModbusDataUnit::HoldingRegisters, QModbusDataUnit::InputRegisters}) {
        map.insert(table, {table, 0, RegisterText::RegisterCount});
    }
    setMap(map);
}

quint16 SimulatorServer::port() const
{
    const auto* listener = findChild<QTcpServer*>();
    return listener ? listener->serverPort() : quint16(0);
}

QModbusResponse SimulatorServer::processRequest(const QModbusPdu& request)
{
    if (request.functionCode() == QModbusPdu::ReportServerId) {
        return serverIdResponse();
    }
    const QScopedValueRollback<bool> answering(m_answering, true);
    return QModbusTcpServer::processRequest(request);
}

bool SimulatorServer::writeData(const QModbusDataUnit& unit)
{
    const bool accepted = QModbusTcpServer::writeData(unit);
    // The device's own changes pass here as well.
    if (accepted && m_answering) {
        emit written(unit);
    }
    return accepted;
}
