#include "d_cmd_drv_listen.h"

#include "log_line.h"
#include "modbus_codec.h"

namespace {

constexpr int replyTimeoutMs = 2000;
constexpr int defaultIntervalMs = 50;

// The function code that reads a register type, 0 for any other text.
int functionCodeOf(const QString& registerType)
{
    return registerType == QLatin1String("coilsRegister")   ? ReadCoils
        : registerType == QLatin1String("inputStatus")      ? ReadDiscreteInputs
        : registerType == QLatin1String("holdingRegisters") ? ReadHoldingRegisters
        : registerType == QLatin1String("inputRegisters")   ? ReadInputRegisters
                                                            : 0;
}

} // namespace

DCmdDrvListen::DCmdDrvListen(const ParameterMap& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("listen"), QStringLiteral("stopListening"), parameters,
                       parent)
{
    // Deliberate: word for word the texts of "read", "once" and "coilRegister" included.
    setDescription(QStringLiteral("Read once one or many registers of the connected device"));
    declareAParameter(QStringLiteral("register"), QStringLiteral("ui16"),
                      QStringLiteral("Register number"), QVariant());
    declareAParameter(QStringLiteral("registerType"), QStringLiteral("strg"),
                      QStringLiteral("modbus register type: coilRegister / inputStatus / "
                                     "holdingRegisters / inputRegisters"),
                      QVariant());
    declareAParameter(QStringLiteral("dataSize"), QStringLiteral("ui16"),
                      QStringLiteral("Number of register read"), 1);
    declareAResult(QStringLiteral("values"), QStringLiteral("varL"),
                   QStringLiteral("Return a list of the register values of the connected device"),
                   QVariant());
}

DCmdDrvListen::DCmdDrvListen(QObject* parent) : DCmdDrvListen(ParameterMap(), parent) { }

bool DCmdDrvListen::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    const auto number = [this](const QString& name) {
        return getParameterValue(name, QVariant()).toInt();
    };
    ParameterMap map;
    map.insert(QStringLiteral("register"), number(QStringLiteral("register")));
    map.insert(QStringLiteral("dataSize"), number(QStringLiteral("dataSize")));
    map.insert(QStringLiteral("recurrent"), true);
    // The interval is not declared, so it comes unchecked and is passed on as it is.
    map.insert(QStringLiteral("recurrentInterval"),
               getParameterValue(QStringLiteral("recurrentInterval"), defaultIntervalMs));
    const QString registerType =
        getParameterValue(QStringLiteral("registerType"), QVariant()).toString();
    const int functionCode = functionCodeOf(registerType);
    if (functionCode < 1) {
        // Deliberate: no failure of this call. The order ends because it left no instruction.
        log_line::error(this, log_line::listenTypeUnknown);
        return true;
    }
    map.insert(QStringLiteral("funcCode"), functionCode);
    addInstruction(QString(), QStringLiteral("modbus_read_") + registerType, map, replyTimeoutMs,
                   ReplyDelegate());
    return true;
}

QSharedPointer<ICommand> DCmdDrvListen::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DCmdDrvListen(parameters, parent()));
}
