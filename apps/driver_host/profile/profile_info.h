#pragma once

#include <points/profile.h>

#include <QJsonObject>

/// What a profile adds to a parameter in "info": " (one of a, b)" or " (1 to 9)"; or empty.
QString ruleText(const Points::ParameterProfile& profile);
/// The same as members of a JSON object: "words", "least" and "most".
QJsonObject ruleJson(const Points::ParameterProfile& profile);

/// The tables with their old numbers and limits, one a line; empty when there are none.
QString tablesText(const Points::Profile& profile);
QJsonArray tablesJson(const Points::Profile& profile);
