#pragma once

#include <QJsonValue>
#include <QString>
#include <QVariant>

/// A value as a person reads it, on one line: a byte array as hexadecimal and printable text, a
/// list with commas, control characters as \\xNN.
QString plainText(const QVariant& value);

/// A whole number of 0 to 65535 in hexadecimal, "0x0102"; empty for anything else.
QString wordText(const QVariant& value);

/// A value for JSON: byte arrays as lower-case hexadecimal text, an invalid value as null.
QJsonValue jsonValue(const QVariant& value);

/// A JSON value on one line, without control characters.
QString compactJson(const QJsonValue& value);

/// A value as a CSV field without quotes: byte arrays as lower-case hexadecimal, lists and maps as
/// JSON.
QString fieldText(const QVariant& value);
