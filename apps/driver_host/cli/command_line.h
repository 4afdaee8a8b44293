#pragma once

#include "output/renderer.h"
#include "work/point_plan.h"
#include "work/scan_order.h"

#include <common/arguments.h>
#include <plugin_management/link_options.h>
#include <plugin_management/types.h>

#include <QString>
#include <QStringList>

#include <optional>

struct ModuleDescription;

/// What the user asks for.
struct Request
{
    /// One of the module's, or "info", "run" or "scan" when the module has none of that name.
    QString command;
    QString orders; ///< of "run": the file to read, "-" for standard input; else empty
    ParameterMap parameters; ///< of the order, checked and with declared defaults
    ParameterMap connectParameters; ///< of the order that makes the connection
    std::optional<Places> places; ///< of the values that are read
    std::optional<PointPlan> points; ///< what takes more than one order of the command
    std::optional<ScanPlan> scan; ///< of the command "scan"
    bool isOldNumber = false; ///< the places are given by their old numbers
    bool saysWritten = false; ///< as text, a write that is done says so instead of its result
    QStringList notes; ///< to be told before anything is done
    Format format = Format::Text;
    bool quiet = false;
    bool verbose = false;
    bool color = true;
    bool plain = false; ///< lines one below the other, on a terminal as well
    QString append; ///< a CSV file for the results; empty: none
    int count = 0; ///< end after so many results; 0: go on
    LinkOptions link;
    /// How long the order that makes the connection may take for it; 0: for ever.
    int connectLimitS = 120;
};

/// A request, or what to say instead of doing something.
struct CommandLine : Answer
{
    std::optional<Request> request;
};

/// The last value of --plugin, empty when it is not there. It is looked up before all else, because
/// the commands and options to parse come from that module.
QString pluginArgument(const QStringList& arguments);

/// Reads the arguments (without the program's own name) against what \a module declares: one
/// subcommand per command, one option per parameter, and the options of "connect" for all.
CommandLine parseCommandLine(const QStringList& arguments, const ModuleDescription& module);
