#pragma once

#include <points/data_type.h>

#include <QString>
#include <QVariant>
#include <QVector>

// Values and functions without state: use them on any thread.

namespace Points {

using Words = QVector<quint16>;

/// How a value stands in words, and what it means: value = number in the words * scale + offset.
struct ValueFormat
{
    DataType type;
    Order order = Order::ABCD;
    double scale = 1; ///< finite, not 0
    double offset = 0; ///< finite
    QString unit; ///< for people, such as "bar"; may be empty

    bool isScaled() const { return scale != 1 || offset != 0; }
};

/// A value, or why there is none.
struct Decoded
{
    QVariant value; ///< bool, qlonglong, qulonglong (uint64), double, QString; invalid: none
    QString misfit; ///< such as "0x1a00 holds no decimal digits"; empty: none
};

/// The value of exactly wordCount() \a words. NaN and infinities are values. A float32 becomes the
/// double with the fewest digits that is this float32; scaled numbers are rounded to 15 digits, so
/// that 3 * 0.1 is 0.3.
HOST_POINTS_EXPORT Decoded decode(const Words& words, const ValueFormat& format);

/// Words, or what would have fitted.
struct Encoded
{
    Words words; ///< wordCount() of them; empty: the text does not fit
    QString wanted; ///< such as "a whole number -32768 to 32767"
};

/// The words of the value that \a text names: true, false, on, off, 1 or 0; numbers decimal or with
/// 0x, "nan", "inf" and "-inf" for floats; any text for a string. Refused is what the type does not
/// hold: out of its range, no whole number, not a multiple of the scale, a float that would become
/// infinite or 0. A decimal fraction becomes the nearest float.
HOST_POINTS_EXPORT Encoded encode(const QString& text, const ValueFormat& format);

/// A value as text: numbers with as few digits as tell them apart, without an exponent where they
/// have no more than 15 digits; "NaN", "inf", "-inf"; "true" and "false".
HOST_POINTS_EXPORT QString valueText(const QVariant& value);

/// True or false of "on", "true", "1", "off", "false", "0"; none of any other text.
HOST_POINTS_EXPORT std::optional<bool> stateFrom(const QString& text);

} // namespace Points
