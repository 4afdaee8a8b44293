#pragma once

#include <CLI/CLI.hpp>

#include <string>

/// The part of a manual page that follows from the declarations of \a app, as text for man(7): the
/// section OPTIONS and, when there are commands, COMMANDS. A group of options that several commands
/// have is shown once, in a section of its own after its name.
std::string manualSections(const CLI::App& app);
