#pragma once

#include <plugin_management/d_abstract_command.h>

/// "connect": opens the connection and reports its state as the result "connected" until the order
/// "disconnect" stops it.
///
/// Besides its declared parameters an order may carry "keepAliveFunction" and
/// "keepAliveFunctionRegister" (texts). "timeout" is in ms; without one the host's own limit holds.
class DCmdDrvConnect : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdDrvConnect(const ParameterMap& parameters, QObject* parent);
    explicit DCmdDrvConnect(QObject* parent);

    bool commandExecute() override;
    bool finishTheCommand(bool& ok) override;
    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;

private:
    bool takeConnectReply(unsigned long long instructionId, const ParameterMap& reply);
    bool takeDisconnectReply(unsigned long long instructionId, const ParameterMap& reply);
    bool reportConnected(bool connected);

    bool m_connected = false; ///< the state last reported
    quint64 m_instructionId = 0; ///< of the running "connect" instruction, 0 when there is none
};
