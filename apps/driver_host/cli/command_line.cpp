#include "cli/command_line.h"

#include "cli/module_description.h"
#include "cli/subcommand.h"
#include "profile/scan_command.h"

#include <common/number.h>

#include <array>
#include <deque>
#include <limits>
#include <utility>

namespace {

constexpr const char* programName = "driver-host";
constexpr const char* commandsFooter =
    "'driver-host COMMAND --help' tells what a command takes, with examples.\n\n";
constexpr const char* helpFooter =
    "Results go to standard output, everything else to standard error.\n"
    "Exit codes: 0 done, 1 the order failed, 2 usage, 3 no connection, 4 module not loadable.";
constexpr const char* runLines =
    "Lines that it takes, each a JSON object:\n"
    "  an order:      "
    "{\"id\":\"r1\",\"device\":\"pump1\",\"command\":\"NAME\",\"parameters\":{...}}\n"
    "  to stop it:    {\"id\":\"r1\",\"stop\":true}\n"
    "  counters:      {\"id\":\"s1\",\"device\":\"pump1\",\"statistics\":true}\n"
    "  link options:  {\"device\":\"pump1\",\"link\":{\"keepTrying\":true}}, before 'connect'\n"
    "A device takes orders while its order 'connect' runs. 'driver-host info' lists "
    "parameters.\n\n";
constexpr int helpColumn = 46;
constexpr int longestPauseMs = 60 * 1000;

constexpr std::array<std::pair<const char*, Format>, 3> formats{{
    {"text", Format::Text},
    {"json", Format::Json},
    {"csv", Format::Csv},
}};

class Parser
{
public:
    explicit Parser(const ModuleDescription& module);

    CommandLine parse(const QStringList& arguments);

private:
    QString fill(Request& request) const;
    void addOwnCommands(const ModuleDescription& module);
    void addScan(const ModuleDescription& module);
    QString fillCommand(const Subcommand& subcommand, Request& request) const;
    QString fillInfo(Request& request) const;
    QString fillRun(Request& request) const;
    QString fillGlobals(Request& request) const;

    CLI::App m_app;
    GlobalOptions m_globals;
    CLI::App* m_info = nullptr;
    CLI::App* m_run = nullptr;
    std::string m_orders;
    std::deque<Subcommand> m_subcommands;
    std::optional<ScanPlan> m_scan; // none where there is no such command
};

Parser::Parser(const ModuleDescription& module)
    : m_app("Runs the commands of a driver module and shows what they answer.", programName)
{
    m_app.get_formatter()->column_width(helpColumn);
    m_app.set_help_flag("-h,--help", "Print this help and end");
    addGlobalOptions(m_app, m_globals);
    m_app.require_subcommand(1, 1);
    m_app.footer(helpFooter);
    addOwnCommands(module);
    for (const CommandDescription& command : module.commands) {
        m_subcommands.emplace_back(m_app, command, module, m_globals);
    }
    m_scan = scanPlan(module);
    if (m_scan) {
        addScan(module);
    }
    m_app.footer(std::string(commandsFooter) + helpFooter);
}

// A command of the module goes before one of ours with the same name.
void Parser::addOwnCommands(const ModuleDescription& module)
{
    if (module.find(QStringLiteral("info")) == nullptr) {
        m_info = m_app.add_subcommand("info",
                                      "Identity, commands, parameters and results of the "
                                      "module");
        addGlobalOptions(*m_info, m_globals);
        m_info->get_option("--format")->option_text("text|json, default text");
    }
    if (module.find(QStringLiteral("run")) == nullptr) {
        m_run = m_app.add_subcommand("run",
                                     "Orders as JSON lines in, events as JSON lines out; many "
                                     "devices at once");
        m_run->add_option("ORDERS", m_orders, "The file to read, - for standard input")
            ->option_text("")
            ->required();
        addGlobalOptions(*m_run, m_globals);
        m_run->get_option("--format")->option_text("json");
        m_run->footer(std::string(runLines) + helpFooter);
    }
}

void Parser::addScan(const ModuleDescription& module)
{
    CLI::App& scan = m_subcommands.emplace_back(m_app, scanCommand(), module, m_globals).app();
    scan.add_option("--pause", m_scan->pauseMs, "Time between two requests")
        ->transform(numberIn({0, longestPauseMs}))
        ->option_text("MS, default 20");
    scan.add_option("--requests", m_scan->mostRequests, "End after so many requests at most")
        ->transform(numberIn({1, std::numeric_limits<int>::max()}))
        ->option_text("N, default 1000");
}

CommandLine Parser::parse(const QStringList& arguments)
{
    std::vector<std::string> words;
    for (const QString& argument : arguments) {
        words.push_back(argument.toStdString());
    }
    if (const auto answer = parseArguments(m_app, words)) {
        return {*answer, {}};
    }
    Request request;
    const QString error = fill(request);
    return error.isEmpty() ? CommandLine{{}, request} : CommandLine{usageError(m_app, error), {}};
}

QString Parser::fill(Request& request) const
{
    QString error = fillGlobals(request);
    if (!error.isEmpty()) {
        return error;
    }
    if (m_info != nullptr && m_info->parsed()) {
        return fillInfo(request);
    }
    if (m_run != nullptr && m_run->parsed()) {
        return fillRun(request);
    }
    for (const Subcommand& subcommand : m_subcommands) {
        if (subcommand.isUsed()) {
            request.command = subcommand.name();
            return fillCommand(subcommand, request);
        }
    }
    return QString();
}

QString Parser::fillCommand(const Subcommand& subcommand, Request& request) const
{
    QString error = subcommand.fill(request);
    if (m_scan && subcommand.name() == scanCommand().name) {
        ScanPlan plan = *m_scan;
        plan.parameters = request.parameters;
        request.scan = plan;
    }
    return error;
}

QString Parser::fillInfo(Request& request) const
{
    request.command = QStringLiteral("info");
    return request.format == Format::Csv
        ? QStringLiteral("--format: 'csv' is not one of text, json, which info has")
        : QString();
}

QString Parser::fillRun(Request& request) const
{
    request.command = QStringLiteral("run");
    request.orders = QString::fromStdString(m_orders);
    const bool otherFormat =
        m_app.count("--format") + m_run->count("--format") > 0 && request.format != Format::Json;
    if (otherFormat) {
        return unfit(QStringLiteral("--format"), QString::fromStdString(m_globals.format),
                     QStringLiteral("json, the one that run has"));
    }
    return request.orders.isEmpty() ? unfit(QStringLiteral("ORDERS"), QString(),
                                            QStringLiteral("a file or - for standard input"))
                                    : QString();
}

QString Parser::fillGlobals(Request& request) const
{
    request.quiet = m_globals.quiet;
    request.verbose = m_globals.verbose;
    request.color = !m_globals.noColor;
    for (const auto& [name, format] : formats) {
        if (m_globals.format == name) {
            request.format = format;
            return {};
        }
    }
    return unfit(QStringLiteral("--format"), QString::fromStdString(m_globals.format),
                 QStringLiteral("one of text, json, csv"));
}

} // namespace

QString pluginArgument(const QStringList& arguments)
{
    const QString option = QStringLiteral("--plugin");
    QString file;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument.startsWith(option + QLatin1Char('='))) {
            file = argument.mid(option.size() + 1);
        } else if (argument == option && i + 1 < arguments.size()) {
            file = arguments.at(i + 1);
        }
    }
    return file;
}

CommandLine parseCommandLine(const QStringList& arguments, const ModuleDescription& module)
{
    return Parser(module).parse(arguments);
}
