#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

/// What a program answers to the tools around it instead of doing its work, when the first of
/// \a arguments (without the program's own name) asks for it. No help text shows these:
///
/// - `--complete WORD...`: what the last word may become, one candidate a line (see completions());
/// - `--manual`: the sections of the manual page on options and commands (see manualSections()).
///
/// Nothing when the arguments ask for the program's work.
std::optional<std::string> toolAnswer(const CLI::App& app,
                                      const std::vector<std::string>& arguments);
