#include "cli/command_line.h"

#include "cli/module_description.h"
#include "cli/subcommand.h"
#include "exit_codes.h"

#include <common/tool_answers.h>

#include <algorithm>
#include <array>
#include <deque>
#include <utility>

namespace {

constexpr const char* programName = "driver-host";
constexpr const char* helpFooter =
    "Results go to standard output, everything else to standard error.\n"
    "Exit codes: 0 done, 1 the order failed, 2 usage, 3 no connection, 4 module not loadable.";
constexpr const char* runLines =
    "Lines that it takes, each a JSON object:\n"
    "  an order:      "
    "{\"id\":\"r1\",\"device\":\"pump1\",\"command\":\"NAME\",\"parameters\":{...}}\n"
    "  to stop it:    {\"id\":\"r1\",\"stop\":true}\n"
    "  counters:      {\"id\":\"s1\",\"device\":\"pump1\",\"statistics\":true}\n"
    "A device takes orders while its order 'connect' runs. 'driver-host info' lists "
    "parameters.\n\n";
constexpr const char* needsOrders = "run needs ORDERS, a file or - for standard input";
constexpr int helpColumn = 46;

constexpr std::array<std::pair<const char*, Format>, 3> formats{{
    {"text", Format::Text},
    {"json", Format::Json},
    {"csv", Format::Csv},
}};

// The parser's own words for an option without its value, or given twice, begin with its name.
QString mismatch(const QString& what)
{
    const QString option = what.section(QLatin1Char(':'), 0, 0);
    return what.endsWith(QLatin1String("missing"))
        ? QStringLiteral("%1 needs a value").arg(option)
        : QStringLiteral("%1 is given more than once").arg(option);
}

class Parser
{
public:
    explicit Parser(const ModuleDescription& module);

    CommandLine parse(const QStringList& arguments);

private:
    QString fill(Request& request) const;
    void addOwnCommands(const ModuleDescription& module);
    QString fillInfo(Request& request) const;
    QString fillRun(Request& request) const;
    QString fillGlobals(Request& request) const;
    QString unexpected() const;
    CommandLine usageError(const QString& what) const;
    QString usedCommand() const;

    CLI::App m_app;
    GlobalOptions m_globals;
    CLI::App* m_info = nullptr;
    CLI::App* m_run = nullptr;
    std::string m_orders;
    std::deque<Subcommand> m_subcommands;
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
        m_subcommands.emplace_back(m_app, command, module.connectCommand(), m_globals);
    }
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

CommandLine Parser::parse(const QStringList& arguments)
{
    std::vector<std::string> words;
    for (const QString& argument : arguments) {
        words.push_back(argument.toStdString());
    }
    if (const auto answer = toolAnswer(m_app, words)) {
        return {{}, ExitDone, QString::fromStdString(*answer), {}};
    }
    std::reverse(words.begin(), words.end()); // as the parser takes them
    try {
        m_app.parse(words);
    } catch (const CLI::CallForHelp&) {
        return {{}, ExitDone, QString::fromStdString(m_app.help()), {}};
    } catch (const CLI::CallForVersion& answer) {
        return {{}, ExitDone, QLatin1String(answer.what()) + QLatin1Char('\n'), {}};
    } catch (const CLI::ExtrasError&) {
        return usageError(unexpected());
    } catch (const CLI::RequiredError&) { // no command; one that is unknown counts as none
        return usageError(unexpected());
    } catch (const CLI::ArgumentMismatch& error) {
        return usageError(mismatch(QString::fromStdString(error.what())));
    } catch (const CLI::ParseError& error) {
        return usageError(QString::fromStdString(error.what()));
    }
    Request request;
    const QString error = fill(request);
    return error.isEmpty() ? CommandLine{request, ExitDone, {}, {}} : usageError(error);
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
            return subcommand.fill(request);
        }
    }
    return QString();
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
    return request.orders.isEmpty() ? QLatin1String(needsOrders) : QString();
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

QString Parser::unexpected() const
{
    const std::vector<std::string> left = m_app.remaining(true);
    if (left.empty()) {
        return usedCommand().isEmpty() ? QStringLiteral("no command given")
                                       : QLatin1String(needsOrders);
    }
    const QString first = QString::fromStdString(left.front());
    if (first.startsWith(QLatin1Char('-'))) {
        return QStringLiteral("unknown option '%1'").arg(first);
    }
    return usedCommand().isEmpty() ? QStringLiteral("unknown command '%1'").arg(first)
                                   : QStringLiteral("unexpected argument '%1'").arg(first);
}

CommandLine Parser::usageError(const QString& what) const
{
    const QString program = QLatin1String(programName);
    const QString command = usedCommand();
    const QString subject = command.isEmpty() ? program : program + QLatin1Char(' ') + command;
    return {{},
            ExitUsage,
            {},
            {QStringLiteral("%1: %2").arg(program, what),
             QStringLiteral("try '%1 --help'").arg(subject)}};
}

QString Parser::usedCommand() const
{
    const auto used = m_app.get_subcommands();
    return used.empty() ? QString() : QString::fromStdString(used.front()->get_name());
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
