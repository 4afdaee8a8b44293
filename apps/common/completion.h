#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// Stands alone where the name of a file is wanted.
constexpr const char* filesWanted = ":files";

/// What the last of \a words, the arguments so far, may become: commands of \a app, options that
/// have not been given yet, or values of an option. Values are known where an option's label lists
/// them ("text|json, default text") or begins with "FILE"; of OPTION=VALUE only the value is
/// completed. Empty when nothing is known.
std::vector<std::string> completions(const CLI::App& app, const std::vector<std::string>& words);
