#include "d_cmd_drv_write.h"

#include "log_line.h"
#include "modbus_codec.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr int replyTimeoutMs = 2000;

struct WriteType
{
    QString name;
    QString function;
    int functionCode;
};

// "coilsRegister" is function 5 here and function 1 in a read. Null for a type that cannot be
// written.
const WriteType* findWriteType(const QString& name)
{
    static const WriteType types[] = {
        {QStringLiteral("coilsRegister"), QStringLiteral("modbus_write_coilsRegister"),
         WriteSingleCoil},
        {QStringLiteral("singleRegister"), QStringLiteral("modbus_write_singleRegister"),
         WriteSingleRegister},
        {QStringLiteral("multipleCoils"), QStringLiteral("modbus_write_multipleCoils"),
         WriteMultipleCoils},
        {QStringLiteral("multipleRegisters"), QStringLiteral("modbus_write_multipleRegisters"),
         WriteMultipleRegisters},
    };
    const auto* const type = std::find_if(std::begin(types), std::end(types),
                                          [&](const WriteType& each) { return each.name == name; });
    return type == std::end(types) ? nullptr : type;
}

} // namespace

DCmdDrvWrite::DCmdDrvWrite(const ParameterMap& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("write"), parameters, parent)
{
    setDescription(QStringLiteral("Write once one or many registers of the connected device"));
    declareAParameter(QStringLiteral("register"), QStringLiteral("ui16"),
                      QStringLiteral("Register number"), QVariant());
    // Deliberate: this is the text of "read". The values that are accepted are those of the table
    // above.
    declareAParameter(QStringLiteral("registerType"), QStringLiteral("strg"),
                      QStringLiteral("modbus register type: coilRegister / inputStatus / "
                                     "holdingRegisters / inputRegisters"),
                      QVariant());
    declareAParameter(QStringLiteral("data"), QStringLiteral("vart"),
                      QStringLiteral("Data to write to the registers"), QVariant());
    declareAResult(QStringLiteral("values"), QStringLiteral("varL"),
                   QStringLiteral("Return a list of the register values of the connected device"),
                   QVariant());
}

DCmdDrvWrite::DCmdDrvWrite(QObject* parent) : DCmdDrvWrite(ParameterMap(), parent) { }

bool DCmdDrvWrite::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    ParameterMap map;
    map.insert(QStringLiteral("register"),
               getParameterValue(QStringLiteral("register"), QVariant()).toInt());
    map.insert(QStringLiteral("data"), getParameterValue(QStringLiteral("data"), QVariant()));
    const WriteType* const type =
        findWriteType(getParameterValue(QStringLiteral("registerType"), QVariant()).toString());
    if (type == nullptr) {
        // Deliberate: no failure of this call. The order ends because it left no instruction.
        log_line::error(this, log_line::writeTypeUnknown);
        return true;
    }
    map.insert(QStringLiteral("funcCode"), type->functionCode);
    addInstruction(QString(), type->function, map, replyTimeoutMs, ReplyDelegate());
    return true;
}

QSharedPointer<ICommand> DCmdDrvWrite::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DCmdDrvWrite(parameters, parent()));
}
