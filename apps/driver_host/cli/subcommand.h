#pragma once

#include "cli/command_line.h"
#include "cli/link_arguments.h"
#include "cli/module_description.h"
#include "cli/option_text.h"
#include "profile/point_options.h"

#include <CLI/CLI.hpp>
#include <QSet>

#include <deque>
#include <optional>
#include <string>
#include <vector>

/// The options that every subcommand takes, and that stand before it as well.
struct GlobalOptions
{
    std::string plugin;
    std::string format = "text";
    bool quiet = false;
    bool verbose = false;
    bool noColor = false;
};

/// Adds them to the program or to one of its subcommands.
void addGlobalOptions(CLI::App& app, GlobalOptions& globals);

/// A command of the module as a subcommand, with an option for each of its parameters and, unless
/// it makes the connection itself, for those of "connect".
///
/// Stays where it is: the parser keeps references into it.
class Subcommand
{
public:
    /// \a module must outlive it, and \a command is one of its.
    Subcommand(CLI::App& root, const CommandDescription& command, const ModuleDescription& module,
               GlobalOptions& globals);

    Q_DISABLE_COPY(Subcommand)

    /// True when the arguments named it.
    bool isUsed() const { return m_app->parsed(); }
    QString name() const { return m_command.name; }
    /// To add further options to.
    CLI::App& app() { return *m_app; }
    /// Puts what was given into \a request; answers what is wrong with it, or nothing.
    QString fill(Request& request) const;

private:
    // One declared parameter as an option.
    struct ParameterOption
    {
        Declaration declared;
        bool ofConnect = false;
        CLI::Option* option = nullptr; // null when its name cannot be one: --param passes it
        std::string text;
    };

    bool takesRepetition() const { return m_command.recurrent && !m_command.isConnect(); }
    void addParameters(const CommandDescription& command, bool ofConnect);
    void addParameter(const Declaration& declared, bool ofConnect);
    void addRepetition();
    std::string freeNames(const QString& parameter);
    const ParameterOption* find(const QString& parameter) const;
    Points::Role roleOf(const ParameterOption& option) const;
    QString textOf(Points::Role role, const Request& request) const;
    const Points::ParameterProfile* profileOf(const ParameterOption& option) const;
    bool isLeftToPoints(const ParameterOption& option) const;
    QString fillPoints(Request& request) const;
    QString checkRules(Request& request) const;
    void note(const QString& name, Request& request) const;
    QString fillOptions(Request& request) const;
    QString fillParams(Request& request) const;
    QString fillParam(const QString& given, Request& request) const;
    void fillNumbers(Request& request) const;
    QString fillLink(Request& request) const;
    QString missing(const Request& request) const;
    bool isNeeded(const ParameterOption& option, const Request& request) const;
    QString fillDefaults(Request& request) const;

    const ModuleDescription& m_module;
    CommandDescription m_command;
    std::optional<PointOptions> m_points; // of a command that reads or writes tables
    CLI::App* m_app;
    QSet<QString> m_takenNames{
        QStringLiteral("help"),     QStringLiteral("version"),       QStringLiteral("param"),
        QStringLiteral("interval"), QStringLiteral("count"),         QStringLiteral("plugin"),
        QStringLiteral("format"),   QStringLiteral("quiet"),         QStringLiteral("verbose"),
        QStringLiteral("no-color"), QStringLiteral("connect-limit"), QStringLiteral("plain"),
        QStringLiteral("append")};
    std::deque<ParameterOption> m_options; // a deque, as the parser keeps references into it
    LinkArguments m_link;
    std::vector<std::string> m_params;
    int m_intervalMs = 0; // 0: not given, as is the count
    int m_count = 0;
    int m_connectLimitS = Request().connectLimitS;
    bool m_plain = false;
    std::string m_append;
};
