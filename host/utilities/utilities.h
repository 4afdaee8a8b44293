#pragma once

#include <utilities/utilities_global.h>

#include <QByteArray>
#include <QChar>
#include <QMap>
#include <QString>
#include <QVariant>

// Functions without state: call them on any thread.

/// A version as one number that sorts as versions do: up to four fields of 16 bits each, the first
/// in the top bits, missing fields 0 ("1.0" is 0x0001000000000000).
///
/// Each field is 0 to 65535. Anything else (an empty field, a fifth field, a letter) gives 0 and
/// sets \a ok, when given, to false.
HOST_UTILITIES_EXPORT unsigned long long versionFromString(const QString& text, bool* ok = nullptr,
                                                           QChar separator = QLatin1Char('.'));

/// The map as one line for people and logs, keys in order: {"dataSize": 2, "info": 01ff}.
/// Texts are quoted and escaped, byte arrays are lower-case hexadecimal, lists and maps are nested;
/// a value with no text form shows as its type name in angle brackets.
HOST_UTILITIES_EXPORT QString convVariantMapToString(const QMap<QString, QVariant>& map);

/// Big-endian 16-bit words, as Modbus sends registers (Modbus Application Protocol V1.1b3, section
/// 4.2), as a list of unsigned numbers (0 to 65535). Of an odd number of bytes
/// the last one becomes a value of its own (0 to 255), so a one-byte answer stays readable.
HOST_UTILITIES_EXPORT QList<QVariant>
convUInt16BigEndianByteArrayToVariantList(const QByteArray& bytes);

/// The local date and time, to the millisecond, for a log line: "2024-03-09 17:05:42.031".
HOST_UTILITIES_EXPORT QString getDate();
