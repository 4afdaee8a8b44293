#pragma once

#include <QJsonValue>
#include <QString>
#include <QVariant>

/// A value as a person reads it, on one line: a byte array as hexadecimal and printable text, a
/// list with commas, control characters as \\xNN.
QString plainText(const QVariant& value);
/// A value as people mean it: states as "on" and "off", anything else as plain text with its unit.
QString typedText(const QVariant& value, const QString& unit);

/// A whole number of 0 to 65535 in hexadecimal, "0x0102"; empty for anything else.
QString wordText(const QVariant& value);

/// A value for JSON: byte arrays as lower-case hexadecimal text, an invalid value as null.
QJsonValue jsonValue(const QVariant& value);

/// A JSON value on one line, without control characters.
QString compactJson(const QJsonValue& value);

/// A value as JSON on one line. Numbers stand as valueText() has them, with all the digits of whole
/// ones of 64 bits; what JSON has no number for, NaN and infinities, is a text.
QString jsonText(const QVariant& value);

/// A value as a CSV field without quotes: byte arrays as lower-case hexadecimal, lists and maps as
/// JSON.
QString fieldText(const QVariant& value);
