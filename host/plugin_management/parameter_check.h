#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

#include <QList>
#include <QString>

// Functions without state: call them on any thread.

/// The longest time from one repetition to the next, one day.
constexpr int longestIntervalMs = 24 * 60 * 60 * 1000;

/// What does not fit, and what would.
struct Misfit
{
    QString place; ///< of an element in a list or a map, such as "[2]" or ".name[0]"; else empty
    QString given; ///< the value, on one line
    QString wanted; ///< such as "a number 0 to 65535"
};

/// Reads a text as a number: decimal ("-5", "1.0", "1e3", as precise as a double) or hexadecimal
/// ("0x1F"), blanks around it aside. An invalid value when it is none; a whole number of 32 bits is
/// an int, or an unsigned one beyond that; any other one is such that checkValue() refuses it.
HOST_PLUGIN_MANAGEMENT_EXPORT QVariant readNumber(const QString& text);

/// Checks a value against a type tag and brings it into the tag's own type: "ui16" an unsigned
/// number 0 to 65535 (a text that is a number will do), "bool" a bool (true, false, 1, 0), "strg" a
/// text, "varL" a list, "varM" a map; "vart", and any tag unknown here, takes every value.
///
/// Whatever the tag, each number in the value, however deep, must be a whole one of 32 bits, so
/// that no module bends it; so must a text of digits unless the tag is "strg", as modules read
/// numbers from those. False when it does not fit, with the reason in \a misfit, which may be null.
HOST_PLUGIN_MANAGEMENT_EXPORT bool checkValue(const QString& typeTag, QVariant& value,
                                              Misfit* misfit);

/// Fills declared defaults into \a parameters and checks what is declared. Undeclared parameters
/// pass, with whole numbers of 32 bits in them; of them, "recurrentInterval" is the host's own and
/// must be 1 to longestIntervalMs (ms). False, with a text that names parameter, place, value and
/// range in \a error, which may be null, for the first value that does not fit. A declared
/// parameter that has no default may be missing.
HOST_PLUGIN_MANAGEMENT_EXPORT bool checkParameters(const QList<Declaration>& declarations,
                                                   ParameterMap& parameters, QString* error);
