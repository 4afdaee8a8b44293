#pragma once

#include <plugin_management/d_abstract_plugin.h>

/// The plug-in object: a Modbus TCP client driver with the commands "connect", "listen", "read",
/// "write" and "deviceInformation".
///
/// The plug-in loader makes a root object with a null object id. Every further one comes from
/// createInstance(): one per device.
class PDriverModbus : public DAbstractPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "fr.vexo.rd.box.PDriverModbus")

public:
    explicit PDriverModbus(const QUuid& objectUuid = QUuid(), QObject* parent = nullptr);

    static QUuid getPluginId();
    static const char* getPluginName();
    static IPlugin::Type getPluginType();

    /// Declares the five commands, installs the worker, which gets this object's objectName(), and
    /// announces the commands. Meant to be called once.
    void initPluginCommands() override;
    /// The caller owns the new object.
    IPlugin* createInstance(const QUuid& objectUuid) const override;
    /// "": a driver of the general kind.
    const char* pluginSubTypeName() const override;
};
