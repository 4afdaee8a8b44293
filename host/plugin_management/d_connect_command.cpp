#include <plugin_management/d_connect_command.h>

namespace {

QString hostKey() { return QStringLiteral("host"); }
QString portKey() { return QStringLiteral("port"); }
QString connectedKey() { return QStringLiteral("connected"); }

} // namespace

DConnectCommand::DConnectCommand(QObject* parent, const QVariant& defaultPort)
    : DConnectCommand(ParameterMap(), defaultPort, parent)
{
}

DConnectCommand::DConnectCommand(const ParameterMap& parameters, const QVariant& defaultPort,
                                 QObject* parent)
    : DAbstractCommand(QStringLiteral("connect"), QStringLiteral("disconnect"), parameters, parent),
      m_defaultPort(defaultPort)
{
    setDescription(QStringLiteral("Connect to the device, until disconnected"));
    declareAParameter(hostKey(), QStringLiteral("strg"), QStringLiteral("Address of the device"),
                      QVariant());
    declareAParameter(portKey(), QStringLiteral("ui16"), QStringLiteral("Port of the device"),
                      defaultPort);
    declareAResult(connectedKey(), QStringLiteral("bool"),
                   QStringLiteral("Whether the device can be asked"), QVariant());
}

QSharedPointer<ICommand> DConnectCommand::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DConnectCommand(parameters, m_defaultPort, parent()));
}

bool DConnectCommand::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    const ParameterMap map{{hostKey(), getParameterValue(hostKey(), QVariant())},
                           {portKey(), getParameterValue(portKey(), m_defaultPort)}};
    m_instruction = addInstruction(QString(), commandName(), map, 0, ReplyDelegate());
    return m_instruction != 0;
}

// "connected" true or false, or "disconnected" true, of either instruction.
bool DConnectCommand::setReply(quint64 instructionId, const ParameterMap& reply)
{
    Q_UNUSED(instructionId)
    return commandUpdateResult(connectedKey(), reply.value(connectedKey()).toBool());
}

bool DConnectCommand::finishTheCommand(bool& ok)
{
    stopTheInstruction(m_instruction);
    ok = addInstruction(QString(), stopCommandName(), ParameterMap(), 0, ReplyDelegate()) != 0;
    return commandFinish(ok);
}
