#pragma once

#include <plugin_management/d_data_storage.h>
#include <plugin_management/i_plugin.h>
#include <plugin_management/link_options.h>

#include <memory>

class DAbstractCommand;
class DAbstractWorker;
class DOrders;
class ILocalWorker;

/// The base of every plug-in object: identity, properties, commands, the worker and the orders.
///
/// A plug-in object with its commands, its orders and its worker is a closed unit on the thread
/// that makes it: it is used and destroyed there. The order of the virtual operations is part of
/// the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractPlugin : public DDataStorage, public IPlugin
{
    Q_OBJECT
    Q_INTERFACES(IPlugin)

public:
    /// \a pluginUuid and \a pluginName are the module's own and never change; \a version is packed
    /// as by versionFromString(); \a objectUuid is that given to createInstance(), null for the
    /// loader's object. \a singleInstance is true for a plug-in of which a host makes one object
    /// only.
    DAbstractPlugin(const QUuid& pluginUuid, const QString& pluginName, IPlugin::Type type,
                    unsigned long long version, const QUuid& objectUuid, QObject* parent,
                    bool singleInstance);
    /// Ends every order as stopped, then destroys the worker, which closes the connection.
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

    /// Declares the commands and installs the worker: initAbstractCommands(), then one
    /// declareInstructionCommand() per command, then initLocalDestination(); at the end it sends
    /// sigCommandsInitDone(). Called once, after setObjectName().
    virtual void initPluginCommands() = 0;
    /// A new object, owned by the caller, that lives on the thread of the call.
    IPlugin* createInstance(const QUuid& objectUuid) const override = 0;
    const char* pluginSubTypeName() const override = 0;

    /// True when a host shall make one object only. Nothing here enforces it.
    bool isSingleInstance() const;
    /// The names of the declared commands in order of declaration, without stop names.
    QStringList commandNames() const;
    /// The prototype of a command, owned by this object; null for an unknown name.
    const DAbstractCommand* command(const QString& name) const;
    /// The orders of this object, which owns them; never null.
    DOrders* orders() const;
    /// The worker, owned by this object; null before initPluginCommands(), or when it does not
    /// derive from DAbstractWorker.
    DAbstractWorker* worker() const;
    /// What lies between the worker and its device from the next "connect" on; it replaces what was
    /// set before. False, with the reason in \a refusal, which may be null, when it cannot be: a
    /// connection is in use, or the options do not fit each other, the module or what there is.
    bool setLinkOptions(const LinkOptions& options, QString* refusal = nullptr);
    /// Stores a property; with \a notify a change is told by sigPropertyChanged(). Not a property
    /// of QObject.
    void setProperty(const QString& name, const QVariant& value, bool notify);

signals:
    /// The commands can be asked for now; \a commandNames are without stop names.
    void sigCommandsInitDone(const QUuid& objectUuid, const QStringList& commandNames);
    void sigPropertyChanged(const QString& name, const QVariant& value);

protected:
    /// Ends all orders and deletes all commands; the first call of initPluginCommands().
    void initAbstractCommands();
    /// Takes over a command prototype, which becomes a child of this object. Users see the commands
    /// in the order of these calls. Its name must be new, and so must its stop name.
    void declareInstructionCommand(DAbstractCommand* command);
    /// Takes over the worker that runs this object's instructions, and destroys the one before it.
    /// It must derive from DAbstractWorker: no other one's answers are heard.
    void initLocalDestination(ILocalWorker* worker);

private:
    class Private;
    std::unique_ptr<Private> d;
};
