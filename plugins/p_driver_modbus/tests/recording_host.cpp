#include "recording_host.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <utilities/utilities.h>

using namespace recording_host;

namespace {

QStringList calls;
QMap<QString, WorkerFunction> functions;

void record(const char* operation, const QVariantList& arguments = {})
{
    calls.append(operation);
    for (const QVariant& argument : arguments) {
        calls.last() += ' ' + show(argument);
    }
}

QString className(const QObject* object) { return object->metaObject()->className(); }

} // namespace

QString recording_host::show(const QVariant& value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return "-";
    case QMetaType::Int:
    case QMetaType::ULongLong:
    case QMetaType::Bool:
        return value.toString();
    case QMetaType::UInt:
        return value.toString() + 'u';
    case QMetaType::QString:
        return '\'' + value.toString() + '\'';
    case QMetaType::QByteArray:
        return 'x' + value.toByteArray().toHex();
    case QMetaType::QVariantList:
        for (const QVariant& element : value.toList()) {
            parts.append(show(element));
        }
        return '[' + parts.join(' ') + ']';
    case QMetaType::QVariantMap:
        for (const QString& key : value.toMap().keys()) {
            parts.append(key + '=' + show(value.toMap()[key]));
        }
        return '{' + parts.join(' ') + '}';
    default:
        return value.typeName() + ('(' + value.toString()) + ')';
    }
}

QStringList recording_host::takeCalls() { return std::exchange(calls, {}); }

bool recording_host::callFunction(const QString& name, quint64 orderId,
                                  const ParameterMap& parameters)
{
    ParameterMap result = {{"r", 1}};
    resultMap = &result;
    return functions[name](orderId, parameters, result);
}

// Of Qt: what a shared pointer tells an object that it keeps.
void QtSharedPointer::ExternalRefCountData::setQObjectShared(const QObject* object, bool /*on*/)
{
    record("tracked", {className(object)});
}

// From here on the kit's classes and the one of its functions that is written down as well. What
// the module never calls does nothing.
// clang-format off
using Text = const QString&;
using Map = const ParameterMap&;
using Value = const QVariant&;

DObject::DObject(QObject* parent) : QObject(parent) { }
DObject::~DObject() = default;
DDataStorage::DDataStorage(QObject* parent) : DObject(parent) { }
DDataStorage::~DDataStorage() = default;

DAbstractCommand::DAbstractCommand(Text name, Text stopName, Map parameters, QObject* parent) :
    DObject(parent), m_name(name), m_parameters(parameters)
{ record("DAbstractCommand", {name, stopName, parameters}); }
DAbstractCommand::DAbstractCommand(Text name, Map parameters, QObject* parent) :
    DObject(parent), m_name(name), m_parameters(parameters)
{ record("DAbstractCommand", {name, parameters}); }
DAbstractCommand::~DAbstractCommand() { record("~DAbstractCommand", {m_name}); }
void DAbstractCommand::linkWithItsOrder(IOrder*) { }
QString DAbstractCommand::commandName() const { return m_name; }
QString DAbstractCommand::stopCommandName() const { return {}; }
quint64 DAbstractCommand::getOrderId() const { return 0; }
quint64 DAbstractCommand::getParameterOrderId() const { return 0; }
bool DAbstractCommand::isRecurrent() const { return false; }
bool DAbstractCommand::isValid() const { return true; }
QString DAbstractCommand::description() const { return {}; }
QString DAbstractCommand::fullDescription() const { return {}; }
QList<Declaration> DAbstractCommand::commandArguments() const { return {}; }
bool DAbstractCommand::commandExecute() { return answers.execute; }
bool DAbstractCommand::setReply(quint64, Map) { return false; }
bool DAbstractCommand::finishTheCommand(bool& ok) { return ok; }
quint64 DAbstractCommand::addInstruction(Text worker, Text function, Map parameters, int timeoutMs,
                                         const ReplyDelegate& reply)
{
    record("instruction", {worker, function, parameters, timeoutMs});
    calls.last() += reply ? " handler" : "";
    delegate = reply;
    return answers.instructionId;
}
void DAbstractCommand::setDescription(Text text) { record("description", {text}); }
void DAbstractCommand::declareAParameter(Text name, Text tag, Text text, Value value)
{ record("parameter", {name, tag, text, value}); }
void DAbstractCommand::declareAResult(Text name, Text tag, Text text, Value value)
{ record("result", {name, tag, text, value}); }
QVariant DAbstractCommand::getParameterValue(Text name, Value value) const
{ record("get", {name, value}); return m_parameters.value(name, value); }
bool DAbstractCommand::stopTheInstruction(quint64 id) { record("stop", {id}); return answers.stop; }
bool DAbstractCommand::commandUpdateResult(Text name, Value value)
{ record("update", {name, value}); return answers.update; }
bool DAbstractCommand::commandFinish(bool& ok)
{ record("finish", {ok}); return ok = ok && answers.finish; }

class WorkerEngine { };
DAbstractWorker::DAbstractWorker(Text name) { record("DAbstractWorker", {name}); }
DAbstractWorker::~DAbstractWorker() = default;
bool DAbstractWorker::sltStartOrder(quint64, Text, Map, int, QString&) { return false; }
bool DAbstractWorker::sltStopOrder(quint64) { return false; }
bool DAbstractWorker::isConnected() const { return false; }
bool DAbstractWorker::cbConnect(unsigned long long, Map, ParameterMap&) { return false; }
bool DAbstractWorker::cbDisconnect(unsigned long long, Map, ParameterMap&) { return false; }
ParameterMap DAbstractWorker::cbReply(const QByteArray&) { return {}; }
void DAbstractWorker::declareFunction(Text name, const WorkerFunction& function)
{ record("function", {name}); functions[name] = function; }
void DAbstractWorker::setKeepAliveFunction(Text name, Map parameters, int interval)
{ record("keep-alive", {name, parameters, interval}); }
unsigned long long DAbstractWorker::currentOrderId() const { return answers.currentOrderId; }
ParameterMap DAbstractWorker::getCurrentOrderParameters() const { return answers.orderParameters; }
void DAbstractWorker::setAsyncResult(unsigned long long id, ParameterMap& result)
{ record(&result == resultMap ? "asynchronous" : "asynchronous, another map", {id, result}); }

class DAbstractPlugin::Private
{
public:
    QUuid objectUuid;
    QStringList commands;
    std::unique_ptr<ILocalWorker> worker;
};
DAbstractPlugin::DAbstractPlugin(const QUuid& id, Text name, IPlugin::Type type,
                                 unsigned long long version, const QUuid& objectUuid,
                                 QObject* parent, bool single) :
    DDataStorage(parent), d(new Private{objectUuid, {}, {}})
{
    record("DAbstractPlugin",
           {id, name, quint32(type), version, objectUuid, parent != nullptr, single});
    connect(this, &DAbstractPlugin::sigCommandsInitDone,
            [](const QUuid& uuid, const QStringList& names)
            { record("announced", {uuid, names.join(' ')}); });
}
DAbstractPlugin::~DAbstractPlugin() = default;
QUuid DAbstractPlugin::objectUuid() const { return d->objectUuid; }
QString DAbstractPlugin::getName() const { return {}; }
QUuid DAbstractPlugin::pluginUuid() const { return {}; }
QString DAbstractPlugin::pluginName() const { return {}; }
unsigned long long DAbstractPlugin::pluginVersion() const { return 0; }
IPlugin::Type DAbstractPlugin::pluginType() const { return TypeUnknown; }
QList<QUuid> DAbstractPlugin::compatiblePlugins() const { return {}; }
QString DAbstractPlugin::compatibilityString() const { return {}; }
QVariant DAbstractPlugin::getProperty(Text, bool*) const { return {}; }
QVariant DAbstractPlugin::getProperty(Text, Value) const { return {}; }
QStringList DAbstractPlugin::getFunctions(bool) const { return {}; }
QString DAbstractPlugin::getFunctionDescription(Text) const { return {}; }
QList<Declaration> DAbstractPlugin::getCommandParameters(Text) const { return {}; }
void DAbstractPlugin::setMainConfig(Map) { }
QVariant DAbstractPlugin::getInMainConfig(Text, Value) const { return {}; }
QVariant DAbstractPlugin::getInPluginConfig(Text, Value) const { return {}; }
QString DAbstractPlugin::getDebugIdentification() const { return {}; }
ParameterMap DAbstractPlugin::getMainConfig() const { return {}; }
void DAbstractPlugin::setInPluginConfig(Text, Value) { }
void DAbstractPlugin::setInMainConfig(Text, Value) { }
QStringList DAbstractPlugin::commandNames() const { return d->commands; }
void DAbstractPlugin::setProperty(Text name, Value value, bool notify)
{ record("property", {name, value, notify}); }
void DAbstractPlugin::initAbstractCommands() { record("initAbstractCommands"); }
void DAbstractPlugin::declareInstructionCommand(DAbstractCommand* command)
{
    record("command", {className(command), command->parent() == this});
    d->commands.append(command->commandName());
}
void DAbstractPlugin::initLocalDestination(ILocalWorker* worker)
{
    record("destination", {className(dynamic_cast<QObject*>(worker))});
    d->worker.reset(worker);
}

QString convVariantMapToString(Map map) { record("text", {map}); return show(map); }
// clang-format on
