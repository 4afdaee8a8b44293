#pragma once

#include <QModbusDataUnit>
#include <QString>

#include <optional>

/// Register tables and their contents as people write them.
namespace RegisterText {

/// The registers of each table are 0 to RegisterCount - 1, so that 9999 does not exist.
constexpr quint16 RegisterCount = 9999;

/// "TYPE:REGISTER=V[,V...]", TYPE one of "coilsRegister", "inputStatus", "holdingRegisters" and
/// "inputRegisters", numbers decimal or with 0x. Values are 0 to 65535, 0 or 1
/// for coils and inputs. On nonsense nothing, and \a error says what is wrong.
std::optional<QModbusDataUnit> parse(const QString& text, QString& error);

/// The unit in the form that parse() reads.
QString format(const QModbusDataUnit& unit);

} // namespace RegisterText
