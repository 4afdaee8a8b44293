#include "register_text.h"

#include <common/number.h>

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <array>

namespace {

using Unit = QModbusDataUnit;

constexpr quint16 LastRegister = RegisterText::RegisterCount - 1;

struct Table
{
    Unit::RegisterType type;
    const char* name;
    quint16 largestValue;
};

constexpr std::array<Table, 4> Tables{{
    {Unit::Coils, "coilsRegister", 1},
    {Unit::DiscreteInputs, "inputStatus", 1},
    {Unit::HoldingRegisters, "holdingRegisters", 0xFFFF},
    {Unit::InputRegisters, "inputRegisters", 0xFFFF},
}};

const Table* tableNamed(const QString& name)
{
    for (const Table& table : Tables) {
        if (name == QLatin1String(table.name)) {
            return &table;
        }
    }
    return nullptr;
}

const Table& tableOf(Unit::RegisterType type)
{
    return *std::find_if(Tables.begin(), Tables.end(),
                         [type](const Table& table) { return table.type == type; });
}

std::optional<QVector<quint16>> numbers(const QString& text, quint16 largest, QString& error)
{
    QVector<quint16> values;
    for (const QString& part : text.split(QLatin1Char(','))) {
        const auto value = parseNumber(part, {0, largest});
        if (!value) {
            error = QStringLiteral("value ") + notInRange(part, {0, largest});
            return std::nullopt;
        }
        values.append(quint16(*value));
    }
    return values;
}

} // namespace

std::optional<Unit> RegisterText::parse(const QString& text, QString& error)
{
    static const QRegularExpression form(QStringLiteral("^([^:=]*):([^:=]*)=(.*)$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) {
        error = QStringLiteral("\"%1\" is not of the form TYPE:REGISTER=V[,V...]").arg(text);
        return std::nullopt;
    }
    const Table* table = tableNamed(match.captured(1));
    if (!table) {
        error = QStringLiteral("\"%1\" is none of coilsRegister, inputStatus, holdingRegisters, "
                               "inputRegisters")
                    .arg(match.captured(1));
        return std::nullopt;
    }
    const auto start = parseNumber(match.captured(2), {0, LastRegister});
    if (!start) {
        error = QStringLiteral("register ") + notInRange(match.captured(2), {0, LastRegister});
        return std::nullopt;
    }
    const auto values = numbers(match.captured(3), table->largestValue, error);
    if (values && *start + values->size() > RegisterCount) {
        error = QStringLiteral("the last register is %1").arg(LastRegister);
        return std::nullopt;
    }
    return values ? std::optional(Unit(table->type, *start, *values)) : std::nullopt;
}

QString RegisterText::format(const Unit& unit)
{
    const Table& table = tableOf(unit.registerType());
    QStringList values;
    for (const quint16 value : unit.values()) {
        // A coil that is on comes as 0xFF00, as it was on the wire.
        values.append(QString::number(std::min(value, table.largestValue)));
    }
    return QStringLiteral("%1:%2=%3")
        .arg(QLatin1String(table.name))
        .arg(unit.startAddress())
        .arg(values.join(QLatin1Char(',')));
}
