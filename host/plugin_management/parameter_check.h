#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

#include <QList>

/// Checks a value against a type tag and brings it into the tag's own type: "ui16" an unsigned
/// number 0 to 65535 (a text that is a number will do, decimal or 0x hexadecimal), "bool" a bool
/// (true, false, 1, 0), "strg" a text, "varL" a list, "varM" a map; "vart", and any tag unknown
/// here, takes every value as it is. False, with what would do in \a wanted, when it does not fit.
HOST_PLUGIN_MANAGEMENT_EXPORT bool checkValue(const QString& typeTag, QVariant& value,
                                              QString* wanted);

/// Fills declared defaults into \a parameters and checks what is declared; undeclared parameters
/// pass untouched. False, with a text that names parameter, value and range, for the first value
/// that does not fit.
HOST_PLUGIN_MANAGEMENT_EXPORT bool checkParameters(const QList<Declaration>& declarations,
                                                   ParameterMap& parameters, QString* error);
