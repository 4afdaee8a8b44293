#pragma once

#include <plugin_management/d_data_storage.h>
#include <plugin_management/i_plugin.h>

#include <memory>

class DAbstractCommand;
class DAbstractWorker;
class DOrders;
class ILocalWorker;

/// The base of every plug-in object: identity, properties, commands, the worker and the orders.
///
/// A plug-in object with its commands and its worker is a closed unit on one thread. The order of
/// the virtual operations is part of the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractPlugin : public DDataStorage, public IPlugin
{
    Q_OBJECT
    Q_INTERFACES(IPlugin)

public:
    /// \a singleInstance is true for a plug-in of which a host makes one object only.
    DAbstractPlugin(const QUuid& pluginUuid, const QString& pluginName, IPlugin::Type type,
                    unsigned long long version, const QUuid& objectUuid, QObject* parent,
                    bool singleInstance);
    /// Ends every order, then destroys the worker.
    ~DAbstractPlugin() override;

    QUuid objectUuid() const override;
    QString getName() const override;
    QUuid pluginUuid() const override;
    QString pluginName() const override;
    unsigned long long pluginVersion() const override;
    IPlugin::Type pluginType() const override;
    QList<QUuid> compatiblePlugins() const override;
    QString compatibilityString() const override;
    QVariant getProperty(const QString& name, bool* found = nullptr) const override;
    QVariant getProperty(const QString& name, const QVariant& defaultValue) const override;
    QStringList getFunctions(bool withStopNames) const override;
    QString getFunctionDescription(const QString& name) const override;
    QList<Declaration> getCommandParameters(const QString& name) const override;
    void setMainConfig(const ParameterMap& config) override;
    QVariant getInMainConfig(const QString& key, const QVariant& defaultValue) const override;
    QVariant getInPluginConfig(const QString& key, const QVariant& defaultValue) const override;
    QString getDebugIdentification() const override;
    ParameterMap getMainConfig() const override;
    void setInPluginConfig(const QString& key, const QVariant& value) override;
    void setInMainConfig(const QString& key, const QVariant& value) override;

    /// Declares the commands and installs the worker. Called once, after the object has its name.
    virtual void initPluginCommands() = 0;
    IPlugin* createInstance(const QUuid& objectUuid) const override = 0;
    const char* pluginSubTypeName() const override = 0;

    bool isSingleInstance() const;
    /// The names of the declared commands in order of declaration, without stop names.
    QStringList commandNames() const;
    /// The prototype of a command, null for an unknown name.
    const DAbstractCommand* command(const QString& name) const;
    /// The orders of this object.
    DOrders* orders() const;
    /// The worker, null before initPluginCommands() or when it is none of this framework's base.
    DAbstractWorker* worker() const;
    /// Stores a property; with \a notify its change is announced.
    void setProperty(const QString& name, const QVariant& value, bool notify);

signals:
    void sigCommandsInitDone(const QUuid& objectUuid, const QStringList& commandNames);
    void sigPropertyChanged(const QString& name, const QVariant& value);

protected:
    /// Empties the list of commands; the first call of initPluginCommands().
    void initAbstractCommands();
    /// Takes over a command prototype; it stays a child of this object.
    void declareInstructionCommand(DAbstractCommand* command);
    /// Takes over the worker that runs this object's instructions.
    void initLocalDestination(ILocalWorker* worker);

private:
    class Private;
    std::unique_ptr<Private> d;
};
