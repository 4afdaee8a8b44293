#pragma once

#include <plugin_management/d_abstract_command.h>

/// "write": writes "data", a value or a list of values (0 to 65535), from "register" on, once.
///
/// "registerType" is "coilsRegister" or "singleRegister" (the first value counts), "multipleCoils"
/// or "multipleRegisters" (1 to 121 values); any other is logged and nothing is sent. The result
/// "values" is 1 when the device echoed the request, 0 when its echo differed.
class DCmdDrvWrite : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdDrvWrite(const ParameterMap& parameters, QObject* parent);
    explicit DCmdDrvWrite(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
};
