#pragma once

#include "cli/module_description.h"

/// Reads the profile beside the module's file into \a module, and has its texts describe commands,
/// parameters and results. Answers what is wrong with it, on one line with the file's name, and
/// leaves the module as it is then; empty when nothing is, or there is none.
QString addProfile(ModuleDescription& module);
