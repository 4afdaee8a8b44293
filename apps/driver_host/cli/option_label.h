#pragma once

#include <plugin_management/types.h>
#include <points/profile.h>

#include <string>

/// What the help shows behind the name of a parameter's option: what it takes, by the parameter's
/// type and what \a profile says of it (null: nothing), and its default.
std::string optionText(const Declaration& declared, const Points::ParameterProfile* profile);

/// The examples of a command, with the program's name; empty when it has none.
std::string examplesText(const QString& command, const Points::CommandProfile& profile);
