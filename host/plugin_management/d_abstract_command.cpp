#include <plugin_management/d_abstract_command.h>

#include <plugin_management/i_order.h>
#include <plugin_management/thread_rule.h>
#include <runtime/engine/map_lookup.h>

#include <algorithm>
#include <utility>

namespace {

QString listed(const char* title, const QList<Declaration>& declarations)
{
    QString text;
    for (const Declaration& declared : declarations) {
        text += QStringLiteral("\n  %1 (%2): %3")
                    .arg(declared.name, declared.typeTag, declared.description);
        if (declared.defaultValue.isValid()) {
            text += QStringLiteral(" [%1]").arg(declared.defaultValue.toString());
        }
    }
    return text.isEmpty() ? text : QLatin1Char('\n') + QLatin1String(title) + text;
}

template <typename Declarations>
QList<Declaration> toList(const Declarations& declarations)
{
    return {declarations.cbegin(), declarations.cend()};
}

} // namespace

DAbstractCommand::DAbstractCommand(const QString& name, const QString& stopName,
                                   const ParameterMap& parameters, QObject* parent)
    : DObject(parent), m_name(name), m_stopName(stopName), m_parameters(parameters)
{
}

DAbstractCommand::DAbstractCommand(const QString& name, const ParameterMap& parameters,
                                   QObject* parent)
    : DAbstractCommand(name, QString(), parameters, parent)
{
}

DAbstractCommand::~DAbstractCommand() = default;

void DAbstractCommand::linkWithItsOrder(IOrder* order)
{
    m_order = order;
    if (parent() != nullptr) {
        setParent(nullptr); // the order owns this command: a parent would delete it a second time
    }
}

QString DAbstractCommand::commandName() const { return m_name; }

QString DAbstractCommand::stopCommandName() const { return m_stopName; }

quint64 DAbstractCommand::getOrderId() const { return m_order != nullptr ? m_order->orderId() : 0; }

quint64 DAbstractCommand::getParameterOrderId() const
{
    return m_parameters.value(QStringLiteral("orderId")).toULongLong();
}

bool DAbstractCommand::isRecurrent() const { return !m_stopName.isEmpty(); }

bool DAbstractCommand::isValid() const
{
    return m_order != nullptr && !m_name.isEmpty() && !m_finished;
}

QString DAbstractCommand::description() const { return m_description; }

QString DAbstractCommand::fullDescription() const
{
    const QString stop =
        m_stopName.isEmpty() ? QString() : QStringLiteral(" (stopped by %1)").arg(m_stopName);
    return m_name + stop + QLatin1String(": ") + m_description
        + listed("Parameters:", commandArguments()) + listed("Results:", commandResults());
}

QList<Declaration> DAbstractCommand::commandArguments() const { return toList(m_arguments); }

bool DAbstractCommand::commandExecute() { return isValid(); }

bool DAbstractCommand::setReply(quint64 instructionId, const ParameterMap& reply)
{
    Q_UNUSED(instructionId)
    const QVariant* done = findValue(reply, QStringLiteral("doneOk"));
    if (done != nullptr && !done->toBool()) {
        return false;
    }
    for (const Declaration& result : qAsConst(m_results)) {
        const QVariant* value = findValue(reply, result.name);
        if (value != nullptr && m_order != nullptr) {
            m_order->resultUpdated(result.name, *value);
        }
    }
    return true;
}

bool DAbstractCommand::finishTheCommand(bool& ok)
{
    assertOwnThread(*this, "DAbstractCommand::finishTheCommand()");
    if (m_order != nullptr) {
        m_order->stopAllInstructions();
    }
    return commandFinish(ok);
}

quint64 DAbstractCommand::addInstruction(const QString& worker, const QString& function,
                                         const ParameterMap& parameters, int timeoutMs,
                                         const ReplyDelegate& reply)
{
    assertOwnThread(*this, "DAbstractCommand::addInstruction()");
    if (m_order == nullptr) {
        return 0;
    }
    return m_order->startInstruction({worker, function, parameters, timeoutMs, reply});
}

QList<Declaration> DAbstractCommand::commandResults() const { return toList(m_results); }

void DAbstractCommand::setDescription(const QString& text) { m_description = text; }

void DAbstractCommand::declareAParameter(const QString& name, const QString& typeTag,
                                         const QString& description, const QVariant& defaultValue)
{
    m_arguments.append({name, typeTag, description, defaultValue});
}

void DAbstractCommand::declareAResult(const QString& name, const QString& typeTag,
                                      const QString& description, const QVariant& defaultValue)
{
    m_results.append({name, typeTag, description, defaultValue});
}

QVariant DAbstractCommand::getParameterValue(const QString& name,
                                             const QVariant& defaultValue) const
{
    const QVariant* value = findValue(m_parameters, name);
    return value != nullptr ? *value : defaultValue;
}

bool DAbstractCommand::stopTheInstruction(quint64 instructionId)
{
    assertOwnThread(*this, "DAbstractCommand::stopTheInstruction()");
    return m_order != nullptr && m_order->stopInstruction(instructionId);
}

bool DAbstractCommand::commandUpdateResult(const QString& name, const QVariant& value)
{
    assertOwnThread(*this, "DAbstractCommand::commandUpdateResult()");
    const bool declared = std::any_of(m_results.cbegin(), m_results.cend(),
                                      [&](const Declaration& d) { return d.name == name; });
    if (!declared || m_order == nullptr) {
        return false;
    }
    m_order->resultUpdated(name, value);
    return true;
}

bool DAbstractCommand::commandFinish(bool& ok)
{
    assertOwnThread(*this, "DAbstractCommand::commandFinish()");
    if (m_finished) {
        ok = m_finishedOk;
        return ok;
    }
    m_finished = true;
    m_finishedOk = ok;
    emit sigCommandFinished(ok);
    if (m_order != nullptr) {
        m_order->commandFinished(ok);
    }
    return ok;
}
