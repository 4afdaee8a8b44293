#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

constexpr int exitWrongUsage = 2; ///< of all programs

/// What a program tells, and ends with, instead of doing its work.
struct Answer
{
    int exitCode = 0;
    QString output;
    QStringList errors; ///< lines for standard error
};

/// Reads \a arguments, without the program's own name, into the options of \a app. Nothing when the
/// program is to do its work; else its help, its version, what is wrong with the arguments, or,
/// after `--complete WORD...`, which no help text shows, what the last word may become, one
/// candidate a line (see completions()).
std::optional<Answer> parseArguments(CLI::App& app, const std::vector<std::string>& arguments);

/// The answer to wrong usage: what is wrong, such as "--port: 'x' is not a number 0 to 65535", and
/// where the help is.
Answer usageError(const CLI::App& app, const QString& what);
