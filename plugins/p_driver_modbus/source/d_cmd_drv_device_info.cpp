#include "d_cmd_drv_device_info.h"

namespace {

constexpr int replyTimeoutMs = 2000;

} // namespace

DCmdDrvDeviceInfo::DCmdDrvDeviceInfo(const ParameterMap& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("deviceInformation"), parameters, parent)
{
    // Deliberate: both texts are those of "read".
    setDescription(QStringLiteral("Read once one or many registers of the connected device"));
    declareAResult(QStringLiteral("deviceInformation"), QStringLiteral("varM"),
                   QStringLiteral("Return a list of the register values of the connected device"),
                   QVariant());
}

DCmdDrvDeviceInfo::DCmdDrvDeviceInfo(QObject* parent)
    : DCmdDrvDeviceInfo(ParameterMap(), parent) { }

bool DCmdDrvDeviceInfo::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    addInstruction(QString(), QStringLiteral("modbus_device_information"), ParameterMap(),
                   replyTimeoutMs, ReplyDelegate(this, &DCmdDrvDeviceInfo::takeReply));
    return true;
}

QSharedPointer<ICommand> DCmdDrvDeviceInfo::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DCmdDrvDeviceInfo(parameters, parent()));
}

// A rejected reply has no "info" and is refused by that; its "doneOk" is not looked at.
bool DCmdDrvDeviceInfo::takeReply(unsigned long long /*instructionId*/, const ParameterMap& reply)
{
    const auto info = reply.constFind(QStringLiteral("info"));
    const auto address = reply.constFind(QStringLiteral("ipAdress"));
    if (info == reply.constEnd() || address == reply.constEnd()) {
        return false;
    }
    ParameterMap map;
    map.insert(info.key(), *info);
    map.insert(address.key(), *address);
    const auto httpPort = reply.constFind(QStringLiteral("httpPort"));
    if (httpPort != reply.constEnd()) {
        map.insert(httpPort.key(), *httpPort);
    }
    return commandUpdateResult(QStringLiteral("deviceInformation"), QVariant(map));
}
