#include <plugin_management/d_abstract_command.h>

#include <plugin_management/i_order.h>
#include <plugin_management/thread_rule.h>
#include <runtime/engine/map_lookup.h>
#include <runtime/shell/command_declarations.h>

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

// True when what is declared is just what was expected at this place.
bool isNext(const QList<Declaration>* expected, int place, const QString& name,
            const QString& typeTag, const QString& description, const QVariant& defaultValue)
{
    return expected != nullptr && place < expected->size()
        && isDeclared(expected->at(place), name, typeTag, description, defaultValue);
}

} // namespace

DAbstractCommand::DAbstractCommand(const QString& name, const QString& stopName,
                                   const ParameterMap& parameters, QObject* parent)
    : DObject(parent), m_name(name), m_stopName(stopName), m_parameters(parameters),
      m_declared(CommandDeclarations::expected())
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

QList<Declaration> DAbstractCommand::commandArguments() const
{
    return m_declared ? m_declared->arguments.mid(0, m_argumentCount) : QList<Declaration>();
}

bool DAbstractCommand::commandExecute() { return isValid(); }

bool DAbstractCommand::setReply(quint64 instructionId, const ParameterMap& reply)
{
    Q_UNUSED(instructionId)
    const QVariant* done = findValue(reply, QStringLiteral("doneOk"));
    if (done != nullptr && !done->toBool()) {
        return false;
    }
    for (int i = 0; i < m_resultCount; ++i) {
        const QString name = m_declared->results.at(i).name;
        const QVariant* value = findValue(reply, name);
        if (value != nullptr && m_order != nullptr) {
            m_order->resultUpdated(name, *value);
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

QList<Declaration> DAbstractCommand::commandResults() const
{
    return m_declared ? m_declared->results.mid(0, m_resultCount) : QList<Declaration>();
}

void DAbstractCommand::setDescription(const QString& text) { m_description = text; }

void DAbstractCommand::declareAParameter(const QString& name, const QString& typeTag,
                                         const QString& description, const QVariant& defaultValue)
{
    if (!isNext(m_declared ? &m_declared->arguments : nullptr, m_argumentCount, name, typeTag,
                description, defaultValue)) {
        CommandDeclarations own{{}, false, commandArguments(), commandResults()};
        own.arguments.append({name, typeTag, description, defaultValue});
        m_declared = std::make_shared<const CommandDeclarations>(own);
    }
    ++m_argumentCount;
}

void DAbstractCommand::declareAResult(const QString& name, const QString& typeTag,
                                      const QString& description, const QVariant& defaultValue)
{
    if (!isNext(m_declared ? &m_declared->results : nullptr, m_resultCount, name, typeTag,
                description, defaultValue)) {
        CommandDeclarations own{{}, false, commandArguments(), commandResults()};
        own.results.append({name, typeTag, description, defaultValue});
        m_declared = std::make_shared<const CommandDeclarations>(own);
    }
    ++m_resultCount;
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
    const QList<Declaration> results = commandResults();
    const bool declared = std::any_of(results.cbegin(), results.cend(),
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
