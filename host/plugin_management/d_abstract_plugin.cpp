#include <plugin_management/d_abstract_plugin.h>

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>
#include <runtime/shell/worker_shell.h>

#include <algorithm>

class DAbstractPlugin::Private
{
public:
    QUuid pluginUuid;
    QString pluginName;
    IPlugin::Type type;
    unsigned long long version;
    QUuid objectUuid;
    bool singleInstance;

    ParameterMap mainConfig;
    ParameterMap pluginConfig;
    QList<const DAbstractCommand*> commands;
    std::unique_ptr<ILocalWorker> worker;
    LinkOptions linkOptions;
    DOrders orders;
};

DAbstractPlugin::DAbstractPlugin(const QUuid& pluginUuid, const QString& pluginName,
                                 IPlugin::Type type, unsigned long long version,
                                 const QUuid& objectUuid, QObject* parent, bool singleInstance)
    : DDataStorage(parent), d(new Private)
{
    d->pluginUuid = pluginUuid;
    d->pluginName = pluginName;
    d->type = type;
    d->version = version;
    d->objectUuid = objectUuid;
    d->singleInstance = singleInstance;
}

DAbstractPlugin::~DAbstractPlugin() { d->orders.shutDown(); }

QUuid DAbstractPlugin::objectUuid() const { return d->objectUuid; }

QString DAbstractPlugin::getName() const { return objectName(); }

QUuid DAbstractPlugin::pluginUuid() const { return d->pluginUuid; }

QString DAbstractPlugin::pluginName() const { return d->pluginName; }

unsigned long long DAbstractPlugin::pluginVersion() const { return d->version; }

IPlugin::Type DAbstractPlugin::pluginType() const { return d->type; }

QList<QUuid> DAbstractPlugin::compatiblePlugins() const { return {d->pluginUuid}; }

QString DAbstractPlugin::compatibilityString() const
{
    QStringList texts;
    for (const QUuid& uuid : compatiblePlugins()) {
        texts.append(uuid.toString());
    }
    return texts.join(QLatin1Char(';'));
}

QVariant DAbstractPlugin::getProperty(const QString& name, bool* found) const
{
    return storedValue(name, found);
}

QVariant DAbstractPlugin::getProperty(const QString& name, const QVariant& defaultValue) const
{
    bool found = false;
    const QVariant value = storedValue(name, &found);
    return found ? value : defaultValue;
}

QStringList DAbstractPlugin::getFunctions(bool withStopNames) const
{
    QStringList names;
    for (const DAbstractCommand* command : d->commands) {
        names.append(command->commandName());
        if (withStopNames && !command->stopCommandName().isEmpty()) {
            names.append(command->stopCommandName());
        }
    }
    return names;
}

QString DAbstractPlugin::getFunctionDescription(const QString& name) const
{
    const DAbstractCommand* found = command(name);
    return found != nullptr ? found->description() : QString();
}

QList<Declaration> DAbstractPlugin::getCommandParameters(const QString& name) const
{
    const DAbstractCommand* found = command(name);
    return found != nullptr ? found->commandArguments() : QList<Declaration>();
}

void DAbstractPlugin::setMainConfig(const ParameterMap& config) { d->mainConfig = config; }

QVariant DAbstractPlugin::getInMainConfig(const QString& key, const QVariant& defaultValue) const
{
    return d->mainConfig.value(key, defaultValue);
}

QVariant DAbstractPlugin::getInPluginConfig(const QString& key, const QVariant& defaultValue) const
{
    return d->pluginConfig.value(key, defaultValue);
}

QString DAbstractPlugin::getDebugIdentification() const
{
    return QStringLiteral("%1 (%2 %3)").arg(objectName(), d->pluginName, d->objectUuid.toString());
}

ParameterMap DAbstractPlugin::getMainConfig() const { return d->mainConfig; }

void DAbstractPlugin::setInPluginConfig(const QString& key, const QVariant& value)
{
    d->pluginConfig.insert(key, value);
}

void DAbstractPlugin::setInMainConfig(const QString& key, const QVariant& value)
{
    d->mainConfig.insert(key, value);
}

bool DAbstractPlugin::isSingleInstance() const { return d->singleInstance; }

QStringList DAbstractPlugin::commandNames() const { return getFunctions(false); }

const DAbstractCommand* DAbstractPlugin::command(const QString& name) const
{
    const auto it = std::find_if(d->commands.cbegin(), d->commands.cend(),
                                 [&](const auto* c) { return c->commandName() == name; });
    return it != d->commands.cend() ? *it : nullptr;
}

DOrders* DAbstractPlugin::orders() const { return &d->orders; }

DAbstractWorker* DAbstractPlugin::worker() const
{
    return dynamic_cast<DAbstractWorker*>(d->worker.get());
}

bool DAbstractPlugin::setLinkOptions(const LinkOptions& options, QString* refusal)
{
    QString why = linkOptionsRefusal(options);
    if (why.isEmpty() && worker() != nullptr) {
        worker()->m_shell->setLinkOptions(options, why);
    }
    if (why.isEmpty()) {
        d->linkOptions = options;
    } else if (refusal != nullptr) {
        *refusal = why;
    }
    return why.isEmpty();
}

void DAbstractPlugin::setProperty(const QString& name, const QVariant& value, bool notify)
{
    const bool changed = storeValue(name, value);
    if (changed && notify) {
        emit sigPropertyChanged(name, value);
    }
}

void DAbstractPlugin::initAbstractCommands()
{
    d->orders.shutDown();
    qDeleteAll(d->commands);
    d->commands.clear();
    d->orders.clear();
}

void DAbstractPlugin::declareInstructionCommand(DAbstractCommand* command)
{
    command->setParent(this);
    d->commands.append(command);
    d->orders.addPrototype(command);
}

void DAbstractPlugin::initLocalDestination(ILocalWorker* worker)
{
    d->orders.setWorker(worker);
    d->worker.reset(worker);
    setLinkOptions(d->linkOptions);
}
