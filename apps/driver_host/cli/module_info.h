#pragma once

#include <QString>

struct ModuleDescription;

/// The answer to "driver-host info" for people: identity, then each command with its parameters and
/// results. Several lines.
QString moduleInfoText(const ModuleDescription& module);

/// The same as one JSON object on one line.
QString moduleInfoJson(const ModuleDescription& module);
