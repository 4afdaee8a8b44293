#include "run/runner.h"

#include "output/console.h"
#include "output/failure_text.h"
#include "output/frame_trace.h"
#include "output/message_log.h"
#include "output/poll_statistics.h"
#include "output/value_text.h"
#include "profile/parameter_rules.h"
#include "work/confirmation.h"

#include <common/failure.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/parameter_check.h>

#include <QCryptographicHash>

#include <algorithm>
#include <vector>

namespace {

using Code = OrderFailure::Code;

// Well below what a worker's queue holds, as orders that repeat need their places there as well.
constexpr int mostPerDevice = 512;
constexpr int mostAtOnce = 4096;
// Far more than what a pipe holds of events that a script has not read yet.
constexpr std::size_t endedToRemember = 16384;

QDateTime now() { return QDateTime::currentDateTimeUtc(); }

EventSource sourceOf(const OrderLine& line) { return {line.id, line.device, line.command}; }

OrderLine lineOf(const InputLine& input)
{
    if (!input.tooLong) {
        return parseOrderLine(input.text);
    }
    OrderLine line;
    line.error = QStringLiteral("longer than %1 bytes").arg(LineReader::defaultLimit);
    return line;
}

// An id may be long, and as many of them are remembered.
QByteArray digest(const QJsonValue& id)
{
    return QCryptographicHash::hash(compactJson(id).toUtf8(), QCryptographicHash::Sha1);
}

QString missingParameters(const CommandDescription& command, const ParameterMap& parameters,
                          bool isSerial)
{
    QStringList names;
    for (const Declaration& declared : command.parameters) {
        const bool isNeeded = !isSerial || !command.isAddress(declared.name);
        if (isNeeded && !parameters.value(declared.name).isValid()) {
            names.append(declared.name);
        }
    }
    return names.isEmpty()
        ? QString()
        : QStringLiteral("%1 needs %2").arg(command.name, names.join(QLatin1String(", ")));
}

QString hostParameter(const Points::Profile& profile, const QString& command)
{
    const Points::CommandProfile* known = profile.command(command);
    return known != nullptr ? known->parameterOf(Points::Role::Host) : QString();
}

} // namespace

Runner::Runner(const Module& module, Console& console, bool verbose, QObject* parent)
    : QObject(parent), m_module(module), m_console(console), m_verbose(verbose)
{
}

Runner::~Runner()
{
    for (const auto& [name, device] : m_devices) {
        device.object.plugin->orders()->setListener(nullptr);
    }
}

void Runner::take(const InputLine& input)
{
    if (!input.tooLong && input.text.trimmed().isEmpty()) {
        return;
    }
    const OrderLine line = lineOf(input);
    m_counts.orders += line.beginsOrder() ? 1 : 0;
    const QString error = line.error.isEmpty() ? carryOut(line) : line.error;
    if (!error.isEmpty()) {
        refuse(line, QStringLiteral("line %1: %2").arg(QString::number(input.number), error));
    }
}

bool Runner::hasRoom() const { return m_fullDevices == 0 && m_oneShots < mostAtOnce; }

void Runner::endInput()
{
    m_inputEnded = true;
    settle();
}

void Runner::stopAll()
{
    m_inputEnded = true;
    m_stopping = true;
    stopRunning();
    settle();
}

QString Runner::carryOut(const OrderLine& line)
{
    switch (line.kind) {
    case OrderLine::Kind::Order:
        return startOrder(line);
    case OrderLine::Kind::Stop:
        return stopOrder(line);
    case OrderLine::Kind::Link:
        return setLink(line);
    default:
        return tellStatistics(line);
    }
}

QString Runner::startOrder(const OrderLine& line)
{
    ParameterMap parameters = line.parameters;
    followProfile(line, parameters);
    QString error = checkOrder(line, parameters);
    Device* const target = error.isEmpty() ? device(line.device) : nullptr;
    if (target == nullptr) {
        return error.isEmpty() ? QStringLiteral("the module makes no more devices") : error;
    }
    MessageLog::forgetCritical();
    const quint64 orderId =
        target->object.plugin->orders()->start(line.command, parameters, &error);
    if (orderId == 0) {
        return error;
    }
    enter(orderId, line, *target);
    m_console.write(EventJson::started(sourceOf(line), now()));
    return {};
}

// What people get wrong, and what modules do not take as people write it.
void Runner::followProfile(const OrderLine& line, ParameterMap& parameters)
{
    const CommandDescription* command = m_module.description.find(line.command);
    const Points::Profile& profile = m_module.description.profile;
    QStringList declared{QStringLiteral("recurrentInterval")};
    for (int i = 0; command != nullptr && i < command->parameters.size(); ++i) {
        declared.append(command->parameters[i].name);
    }
    for (const QString& name : parameters.keys()) {
        const QString note =
            command != nullptr ? undeclaredNote(name, declared, profile) : QString();
        if (!note.isEmpty() && !m_told.contains(name)) {
            m_told.insert(name);
            m_console.note(failureLine(note));
        }
    }
    const QString host = hostParameter(profile, line.command);
    if (!host.isEmpty() && parameters.contains(host)) {
        takeOutOfBrackets(parameters[host]);
    }
}

QString Runner::checkOrder(const OrderLine& line, ParameterMap& parameters) const
{
    QString error = checkId(line);
    const CommandDescription* command = m_module.description.find(line.command);
    if (!error.isEmpty() || command == nullptr) {
        return error.isEmpty() ? unknownCommand(line.command) : error;
    }
    const auto known = m_devices.find(line.device);
    const bool isSerial = known != m_devices.end() && known->second.isSerial;
    return checkParameters(command->parameters, parameters, &error)
        ? missingParameters(*command, parameters, isSerial)
        : error;
}

QString Runner::checkId(const OrderLine& line) const
{
    return m_orderIds.contains(compactJson(line.id))
        ? QStringLiteral("an order with this id is still running")
        : QString();
}

QString Runner::unknownCommand(const QString& name) const
{
    QStringList known;
    for (const CommandDescription& command : m_module.description.commands) {
        if (command.stopName == name) {
            return QStringLiteral("'%1' is no command; stop the '%2' order by its id")
                .arg(name, command.name);
        }
        known.append(command.name);
    }
    return QStringLiteral("there is no command '%1'; there are %2")
        .arg(plainText(name), known.join(QLatin1String(", ")));
}

QString Runner::stopOrder(const OrderLine& line)
{
    const auto it = m_orderIds.constFind(compactJson(line.id));
    if (it == m_orderIds.constEnd()) {
        const bool tooLate = m_endedIds.contains(digest(line.id)); // which nobody can help
        return tooLate ? QString() : QStringLiteral("no order with this id is running");
    }
    const quint64 orderId = *it;
    m_running[orderId].device->object.plugin->orders()->stop(orderId);
    return {};
}

QString Runner::tellStatistics(const OrderLine& line)
{
    QString error = checkId(line);
    const auto it = m_devices.find(line.device);
    if (!error.isEmpty() || it == m_devices.end()) {
        return error.isEmpty() ? QStringLiteral("no order has named this device yet") : error;
    }
    const DAbstractWorker* worker = it->second.object.plugin->worker();
    if (worker == nullptr) {
        return QStringLiteral("the module's worker keeps no statistics");
    }
    const QString name = QStringLiteral("statistics");
    const ParameterMap values = statisticsValues(worker->statistics());
    m_console.write(EventJson::result(sourceOf(line), now(), name, values));
    writeFinished(sourceOf(line), true, {{name, values}});
    return {};
}

QString Runner::setLink(const OrderLine& line)
{
    LinkOptions options;
    LinkOptionFault fault;
    if (!readLinkOptions(line.parameters, options, fault)) {
        return QStringLiteral("link option '%1': %2").arg(plainText(fault.option), fault.text);
    }
    Device* const target = device(line.device);
    QString refusal = QStringLiteral("the module makes no more devices");
    const bool taken =
        target != nullptr && target->object.plugin->setLinkOptions(options, &refusal);
    if (taken) {
        target->isSerial = !options.serial.isEmpty();
    }
    return taken ? QString() : refusal;
}

void Runner::refuse(const OrderLine& line, const QString& why)
{
    const OrderFailure failure = OrderFailure::of(Code::Usage, why);
    m_console.write(EventJson::error(sourceOf(line), now(), failure, why));
    if (line.beginsOrder()) {
        writeFinished(sourceOf(line), false, {});
    } else {
        ++m_counts.wrongLines;
    }
}

Runner::Device* Runner::device(const QString& name)
{
    const auto known = m_devices.find(name);
    if (known != m_devices.end()) {
        return &known->second;
    }
    PluginObject object = makeObject(*m_module.object.owner, name);
    if (object.plugin == nullptr) {
        return nullptr;
    }
    watch(*object.plugin);
    Device& made = m_devices[name];
    made.object = std::move(object);
    return &made;
}

void Runner::watch(DAbstractPlugin& plugin)
{
    plugin.orders()->setListener(this);
    if (plugin.worker() == nullptr) {
        return;
    }
    // What the module says of a request from here on is about this one.
    connect(plugin.worker(), &DAbstractWorker::sigOrderRunning, this,
            [] { MessageLog::forgetCritical(); });
    if (m_verbose) {
        traceFrames(*plugin.worker(), plainText(plugin.objectName()));
    }
}

void Runner::enter(quint64 orderId, const OrderLine& line, Device& device)
{
    const CommandDescription& command = *m_module.description.find(line.command);
    m_running.insert(orderId,
                     {sourceOf(line), &device, command.recurrent, command.isConnect(), false,
                      MessageLog::lastCritical()});
    device.connects += command.isConnect() ? 1 : 0;
    m_orderIds.insert(compactJson(line.id), orderId);
    if (!command.recurrent) {
        ++m_oneShots;
        m_fullDevices += ++device.oneShots == mostPerDevice ? 1 : 0;
    }
}

Runner::Running Runner::leave(quint64 orderId)
{
    Running running = m_running.take(orderId);
    m_orderIds.remove(compactJson(running.source.id));
    running.device->connects -= running.isConnect ? 1 : 0;
    if (!running.recurrent) {
        --m_oneShots;
        m_fullDevices -= running.device->oneShots-- == mostPerDevice ? 1 : 0;
    }
    return running;
}

void Runner::orderResult(quint64 orderId, const QString& name, const QVariant& value)
{
    const auto it = m_running.find(orderId);
    if (it == m_running.end()) {
        return;
    }
    it->wasConnected |= it->isConnect && name == QLatin1String("connected") && value.toBool();
    m_console.write(EventJson::result(it->source, now(), name, value));
}

void Runner::orderTrouble(quint64 orderId, const OrderFailure& failure)
{
    const auto it = m_running.constFind(orderId);
    if (it == m_running.constEnd()) {
        return;
    }
    const DOrder* order = it->device->object.plugin->orders()->find(orderId);
    const bool isOfLink = it->isConnect || order == nullptr;
    const QString text = !isOfLink
        ? failureText(order->command, failure,
                      subject(*it, *order, failure, MessageLog::lastCritical()))
        : it->wasConnected ? lossText(m_module.description.profile, failure)
                           : noConnectionYetText(failure);
    m_console.write(EventJson::error(it->source, now(), failure, text));
}

FailureSubject Runner::subject(const Running& running, const DOrder& order,
                               const OrderFailure& failure, const QString& said) const
{
    FailureSubject subject =
        subjectOf(m_module.description.profile, order.command, order.parameters, failure);
    subject.moduleMessage = said;
    if (const DAbstractWorker* worker = running.device->object.plugin->worker()) {
        const WorkerStatistics counted = worker->statistics();
        subject.hasAnswered = counted.done + counted.exceptions + counted.badReplies > 0;
    }
    return subject;
}

bool Runner::lacksConnect(const DOrder& order, const Running& running) const
{
    return order.failure.code == Code::NotConnected && !running.isConnect
        && running.device->connects == 0 && m_module.description.connectCommand() != nullptr;
}

OrderFailure Runner::notConfirmed(const DOrder& order) const
{
    const Points::CommandProfile* profile = m_module.description.profile.command(order.command);
    return profile != nullptr ? unconfirmed(*profile, order.results) : OrderFailure();
}

QString Runner::endText(const DOrder& order, const OrderFailure& failure,
                        const Running& running) const
{
    if (order.state == DOrder::State::Stopped) {
        return QStringLiteral("%1 was stopped").arg(order.command);
    }
    if (lacksConnect(order, running)) {
        return unconnectedFailureText(order.command, failure);
    }
    const QString said =
        running.moduleMessage.isEmpty() ? MessageLog::lastCritical() : running.moduleMessage;
    return running.isConnect
        ? connectFailureText(order.command, failure)
        : failureText(order.command, failure, subject(running, order, failure, said));
}

void Runner::orderFinished(const DOrder& order)
{
    if (!m_running.contains(order.id)) {
        return;
    }
    const bool hadRoom = hasRoom();
    const Running running = leave(order.id);
    const bool stopped = order.state == DOrder::State::Stopped;
    const OrderFailure denied =
        order.state == DOrder::State::Done ? notConfirmed(order) : OrderFailure();
    const bool ok =
        (order.state == DOrder::State::Done && !denied) || (stopped && running.recurrent);
    if (!ok) {
        const OrderFailure failure = stopped ? OrderFailure::of(Code::Stopped, {})
            : denied                         ? denied
                                             : order.failure;
        m_console.write(
            EventJson::error(running.source, now(), failure, endText(order, failure, running)));
    }
    writeFinished(running.source, ok, order.results);
    if (!hadRoom && hasRoom()) {
        emit roomAgain();
    }
    settle();
}

void Runner::writeFinished(const EventSource& source, bool ok, const ParameterMap& results)
{
    ++m_counts.finished;
    m_counts.failed += ok ? 0 : 1;
    m_console.write(EventJson::finished(source, now(), ok, results));
    rememberEnded(source.id);
}

void Runner::rememberEnded(const QJsonValue& id)
{
    m_lastEnded.push_back(digest(id));
    ++m_endedIds[m_lastEnded.back()];
    if (m_lastEnded.size() <= endedToRemember) {
        return;
    }
    const auto oldest = m_endedIds.find(m_lastEnded.front());
    if (--*oldest == 0) {
        m_endedIds.erase(oldest);
    }
    m_lastEnded.pop_front();
}

// The connections last, as the others stand on them.
void Runner::stopRunning()
{
    std::vector<quint64> orderIds(m_running.keyBegin(), m_running.keyEnd());
    std::sort(orderIds.begin(), orderIds.end());
    std::stable_partition(orderIds.begin(), orderIds.end(),
                          [this](quint64 id) { return !m_running[id].isConnect; });
    for (const quint64 id : orderIds) {
        if (m_running.contains(id)) {
            m_running[id].device->object.plugin->orders()->stop(id);
        }
    }
}

void Runner::settle()
{
    if (!m_inputEnded || m_oneShots > 0) {
        return;
    }
    if (!m_stopping) {
        m_stopping = true;
        stopRunning();
    }
    if (m_running.isEmpty() && !m_ended) {
        m_ended = true;
        emit ended();
    }
}
