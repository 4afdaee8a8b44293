#include "d_cmd_drv_read.h"

#include "log_line.h"
#include "modbus_utilities.h"

namespace {

constexpr int replyTimeoutMs = 2000;

} // namespace

DCmdDrvRead::DCmdDrvRead(const ParameterMap& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("read"), parameters, parent)
{
    setDescription(QStringLiteral("Read once one or many registers of the connected device"));
    declareAParameter(QStringLiteral("register"), QStringLiteral("ui16"),
                      QStringLiteral("Register number"), QVariant());
    // Deliberate: the text says "coilRegister", the value that is accepted is "coilsRegister".
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

DCmdDrvRead::DCmdDrvRead(QObject* parent) : DCmdDrvRead(ParameterMap(), parent) { }

bool DCmdDrvRead::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    const auto number = [this](const QString& name) {
        return getParameterValue(name, QVariant()).toInt();
    };
    const int address = number(QStringLiteral("register"));
    const int quantity = number(QStringLiteral("dataSize"));
    const int functionCode = registerTypeToFunctionCode(
        getParameterValue(QStringLiteral("registerType"), QVariant()).toString());
    if (functionCode < 1) {
        // Deliberate: no failure of this call. The order ends because it left no instruction.
        log_line::error(this, log_line::readTypeUnknown);
        return true;
    }
    // Copying entries costs half of what finding a place for each does.
    static const ParameterMap form{{QStringLiteral("dataSize"), 0},
                                   {QStringLiteral("funcCode"), 0},
                                   {QStringLiteral("register"), 0}};
    ParameterMap map = form;
    auto value = map.begin();
    *value++ = quantity;
    *value++ = functionCode;
    *value = address;
    addInstruction(QString(), readFunctionName(functionCode), map, replyTimeoutMs, ReplyDelegate());
    return true;
}

QSharedPointer<ICommand> DCmdDrvRead::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DCmdDrvRead(parameters, parent()));
}
