#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

#include <QList>
#include <QStringList>
#include <QUuid>
#include <QtPlugin>

/// What the host sees of a plug-in object. Called on the thread of the object, but for
/// createInstance(): that is called on the thread where the new object shall live. The order of the
/// operations is part of the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT IPlugin
{
public:
    /// Four ASCII characters packed big-endian into a number: 0x44726976 is "Driv", a driver.
    enum Type : quint32 { TypeUnknown = 0, TypeDriver = 0x44726976 };

    virtual ~IPlugin() = default;

    /// The id of this object; null for the object that the plug-in loader makes.
    virtual QUuid objectUuid() const = 0;
    /// The name the host gave to this object.
    virtual QString getName() const = 0;
    /// The id of the plug-in, the same for all its objects.
    virtual QUuid pluginUuid() const = 0;
    /// The plug-in's name for people.
    virtual QString pluginName() const = 0;
    /// The version as versionFromString() packs it.
    virtual unsigned long long pluginVersion() const = 0;
    /// What the plug-in is; TypeDriver of a driver module.
    virtual Type pluginType() const = 0;
    /// Ids of the plug-ins that this one can stand in for, its own among them.
    virtual QList<QUuid> compatiblePlugins() const = 0;
    /// The same as text, ids separated by ';'.
    virtual QString compatibilityString() const = 0;
    /// The property \a name; \a found, when given, tells whether there is one.
    virtual QVariant getProperty(const QString& name, bool* found = nullptr) const = 0;
    /// The property \a name, or \a defaultValue when there is none.
    virtual QVariant getProperty(const QString& name, const QVariant& defaultValue) const = 0;
    /// Replaces the host-wide configuration that this object sees.
    virtual void setMainConfig(const ParameterMap& config) = 0;
    /// A value of it, or \a defaultValue when it has none.
    virtual QVariant getInMainConfig(const QString& key, const QVariant& defaultValue) const = 0;
    /// A value of this object's own configuration, or \a defaultValue when it has none.
    virtual QVariant getInPluginConfig(const QString& key, const QVariant& defaultValue) const = 0;
    /// Name, plug-in and object id in one line for logs.
    virtual QString getDebugIdentification() const = 0;
    /// A new working object with this id, owned by the caller.
    virtual IPlugin* createInstance(const QUuid& objectUuid) const = 0;
    /// The kind within the plug-in's type; "" for a general one.
    virtual const char* pluginSubTypeName() const = 0;
    /// The names of the declared commands in order of declaration, with \a withStopNames each one's
    /// stop name after it.
    virtual QStringList getFunctions(bool withStopNames) const = 0;
    /// The description of a command; empty for an unknown one.
    virtual QString getFunctionDescription(const QString& name) const = 0;
    /// The declared parameters of a command in order; empty for an unknown one.
    virtual QList<Declaration> getCommandParameters(const QString& name) const = 0;
    /// The host-wide configuration as this object sees it.
    virtual ParameterMap getMainConfig() const = 0;
    /// Sets one value of a configuration. Kept in memory; who made the object keeps it for longer.
    virtual void setInPluginConfig(const QString& key, const QVariant& value) = 0;
    virtual void setInMainConfig(const QString& key, const QVariant& value) = 0;
};

Q_DECLARE_INTERFACE(IPlugin, "fr.vexo.rd.box.IPlugin")
