#pragma once

#include <plugin_management/d_abstract_command.h>

/// "read": reads "dataSize" registers or bits from "register" (0 to 65535) on, once, and gives them
/// as the result "values". "registerType" is "coilsRegister", "inputStatus", "holdingRegisters" or
/// "inputRegisters"; any other is logged and nothing is asked of the device.
class DCmdDrvRead : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdDrvRead(const ParameterMap& parameters, QObject* parent);
    explicit DCmdDrvRead(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
};
