#pragma once

#include <plugin_management/parameter_check.h>

#include <QJsonValue>
#include <QString>
#include <QVariant>

/// Turns the text of an option into a value of the parameter's type. False, with the reason in
/// \a misfit, when it does not fit.
///
/// "vart" takes a number (decimal or 0x hexadecimal), a list of numbers ("258,0x304", "[1,2,3]"), a
/// JSON array, and anything else as text. "varL" is the same, and a single value becomes a list of
/// one. "varM" is a JSON object. All other tags are checkValue()'s, as is the range of numbers.
bool parseValue(const QString& typeTag, const QString& text, QVariant& value, Misfit* misfit);

/// A JSON value as a parameter's: whole numbers as int where one holds them, in lists and maps too;
/// null as an invalid value. Which numbers may be given, checkValue() and checkParameters() say.
QVariant jsonVariant(const QJsonValue& value);
