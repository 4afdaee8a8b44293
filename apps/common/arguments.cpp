#include <common/arguments.h>

#include <common/completion.h>

#include <CLI/CLI.hpp>

namespace {

using Words = std::vector<std::string>;

// The command that was given, or the program itself.
const CLI::App& used(const CLI::App& app)
{
    const auto commands = app.get_subcommands();
    return commands.empty() ? app : *commands.front();
}

// The parser's own words for an option without its value, or given twice, begin with its name.
QString mismatch(const QString& what)
{
    const QString option = what.section(QLatin1Char(':'), 0, 0);
    return what.endsWith(QLatin1String("missing"))
        ? QStringLiteral("%1 needs a value").arg(option)
        : QStringLiteral("%1 is given more than once").arg(option);
}

// What a command needs, such as "run needs ORDERS, the file to read, - for standard input".
QString missing(const CLI::App& command)
{
    QStringList needs{QString::fromStdString(command.get_name()) + QLatin1String(" needs ")};
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_required() && option->empty()) {
            QString text = QString::fromStdString(option->get_description());
            text.replace(0, 1, text.left(1).toLower());
            needs += QString::fromStdString(option->get_name()) + QLatin1String(", ") + text;
        }
    }
    return needs.join(QString());
}

// A command that is unknown counts for the parser as none.
QString unexpected(const CLI::App& app)
{
    const bool takesCommand = !app.get_subcommands({}).empty() && &used(app) == &app;
    const Words left = app.remaining(true);
    if (left.empty()) {
        return takesCommand ? QStringLiteral("no command given") : missing(used(app));
    }
    const QString first = QString::fromStdString(left.front());
    if (first.startsWith(QLatin1Char('-'))) {
        return QStringLiteral("unknown option '%1'").arg(first);
    }
    return takesCommand ? QStringLiteral("unknown command '%1'").arg(first)
                        : QStringLiteral("unexpected argument '%1'").arg(first);
}

Answer answerTo(const CLI::App& app, const CLI::ParseError& outcome)
{
    const QString what = QString::fromStdString(outcome.what());
    if (dynamic_cast<const CLI::CallForHelp*>(&outcome) != nullptr) {
        return {0, QString::fromStdString(app.help()), {}};
    }
    if (dynamic_cast<const CLI::CallForVersion*>(&outcome) != nullptr) {
        return {0, what + QLatin1Char('\n'), {}};
    }
    if (dynamic_cast<const CLI::ExtrasError*>(&outcome) != nullptr
        || dynamic_cast<const CLI::RequiredError*>(&outcome) != nullptr) {
        return usageError(app, unexpected(app));
    }
    const bool isMismatch = dynamic_cast<const CLI::ArgumentMismatch*>(&outcome) != nullptr;
    return usageError(app, isMismatch ? mismatch(what) : what);
}

} // namespace

std::optional<Answer> parseArguments(CLI::App& app, const Words& arguments)
{
    if (!arguments.empty() && arguments.front() == "--complete") {
        QString lines;
        for (const auto& candidate : completions(app, {arguments.begin() + 1, arguments.end()})) {
            lines += QString::fromStdString(candidate) + QLatin1Char('\n');
        }
        return Answer{0, lines, {}};
    }
    try {
        app.parse(Words(arguments.rbegin(), arguments.rend())); // the order that it wants
    } catch (const CLI::ParseError& outcome) {
        return answerTo(app, outcome);
    }
    return std::nullopt;
}

Answer usageError(const CLI::App& app, const QString& what)
{
    const QString program = QString::fromStdString(app.get_name());
    const QString command = QString::fromStdString(used(app).get_name());
    const QString subject = &used(app) == &app ? program : program + QLatin1Char(' ') + command;
    return {exitWrongUsage,
            {},
            {QStringLiteral("%1: %2").arg(program, what),
             QStringLiteral("try '%1 --help'").arg(subject)}};
}
