#pragma once

#include "cli/module_description.h"
#include "work/scan_order.h"

#include <optional>

/// The command "scan", which is the program's own; of a module whose profile tells of tables.
CommandDescription scanCommand();
/// How to scan by what the module has; none when it has nothing to do it with, or a command of its
/// own with this name.
std::optional<ScanPlan> scanPlan(const ModuleDescription& module);
