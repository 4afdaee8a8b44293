#pragma once

#include <points/data_type.h>

#include <QVariant>

// Not installed: whole numbers of the data types, with all their 64 bits.

namespace Points {

/// The integer (of an IntN or UIntN) in the lowest bits.
QVariant integerOf(quint64 bits, DataType::Kind kind);
/// Its bits, sign-extended; none when the text is no whole number of this type. BcdN is such a
/// type as well: the bits are those of the number, not of its digits.
std::optional<quint64> integerFrom(const QString& text, DataType::Kind kind);
/// The bits of (value - offset) / scale; none when that is no whole number of this type.
std::optional<quint64> scaledIntegerFrom(const QString& text, DataType::Kind kind, double scale,
                                         double offset);
/// Such as "-32768 to 32767".
QString integerRangeText(DataType::Kind kind);
/// A decimal or hexadecimal number; none for any other text.
std::optional<double> finiteFrom(const QString& text);

} // namespace Points
