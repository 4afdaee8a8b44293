#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

/// What a program answers to the shell instead of doing its work, when the first of \a arguments
/// (without the program's own name) asks for it: after `--complete WORD...`, which no help text
/// shows, what the last word may become, one candidate a line (see completions()).
///
/// Nothing when the arguments ask for the program's work.
std::optional<std::string> toolAnswer(const CLI::App& app,
                                      const std::vector<std::string>& arguments);
