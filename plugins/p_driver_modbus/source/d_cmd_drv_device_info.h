#pragma once

#include <plugin_management/d_abstract_command.h>

/// "deviceInformation": asks the device for its identification (Report Server ID) and gives a map
/// of "info" (the bytes as they came), "ipAdress" (the address of the connection) and "httpPort".
class DCmdDrvDeviceInfo : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdDrvDeviceInfo(const ParameterMap& parameters, QObject* parent);
    explicit DCmdDrvDeviceInfo(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;

private:
    bool takeReply(unsigned long long instructionId, const ParameterMap& reply);
};
