#include "p_driver_modbus.h"

#include "d_cmd_drv_connect.h"
#include "d_cmd_drv_device_info.h"
#include "d_cmd_drv_listen.h"
#include "d_cmd_drv_read.h"
#include "d_cmd_drv_write.h"
#include "d_worker_modbus.h"

#include <utilities/utilities.h>

PDriverModbus::PDriverModbus(const QUuid& objectUuid, QObject* parent)
    : DAbstractPlugin(getPluginId(), QString::fromLatin1(getPluginName()), getPluginType(),
                      versionFromString(QStringLiteral("1.0"), nullptr, QLatin1Char('.')),
                      objectUuid, parent, false)
{
    setProperty(QStringLiteral("typeName"), QString::fromLatin1(PDriverModbus::pluginSubTypeName()),
                false);
}

QUuid PDriverModbus::getPluginId()
{
    return QUuid(QStringLiteral("{f1e5000d-744a-49c0-91f8-2854bc6507eb}"));
}

const char* PDriverModbus::getPluginName() { return "Plugin MODBUS Driver"; }

IPlugin::Type PDriverModbus::getPluginType() { return IPlugin::TypeDriver; }

void PDriverModbus::initPluginCommands()
{
    initAbstractCommands();
    // Users see the commands in this order.
    declareInstructionCommand(new DCmdDrvConnect(this));
    declareInstructionCommand(new DCmdDrvListen(this));
    declareInstructionCommand(new DCmdDrvRead(this));
    declareInstructionCommand(new DCmdDrvWrite(this));
    declareInstructionCommand(new DCmdDrvDeviceInfo(this));
    initLocalDestination(createWorker(objectName()));
    const QStringList names = commandNames();
    emit sigCommandsInitDone(objectUuid(), names);
}

IPlugin* PDriverModbus::createInstance(const QUuid& objectUuid) const
{
    return new PDriverModbus(objectUuid, nullptr);
}

const char* PDriverModbus::pluginSubTypeName() const { return ""; }
