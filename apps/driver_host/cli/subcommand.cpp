#include "cli/subcommand.h"

#include "cli/option_name.h"
#include "cli/value_parser.h"
#include "output/value_text.h"

#include <common/number.h>
#include <plugin_management/parameter_check.h>

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace {

constexpr const char* globalGroup = "Global options";
constexpr const char* connectGroup = "Connection options";
constexpr int longestConnectS = 24 * 60 * 60;

// How the help shows what an option of this type takes.
constexpr std::array<std::pair<const char*, const char*>, 5> typeLabels{{
    {"strg", "TEXT"},
    {"ui16", "0..65535"},
    {"bool", "true|false"},
    {"varM", "JSON"},
    {"varL", "VALUE,..."},
}};

QString optionName(const QString& parameter) { return QLatin1String("--") + kebabCase(parameter); }

std::string typeLabel(const QString& tag)
{
    for (const auto& [known, label] : typeLabels) {
        if (tag == QLatin1String(known)) {
            return label;
        }
    }
    return "VALUE[,...]";
}

std::string optionText(const Declaration& declared)
{
    const std::string label = typeLabel(declared.typeTag);
    return declared.defaultValue.isValid()
        ? label + ", default " + plainText(declared.defaultValue).toStdString()
        : label + ", required";
}

// Of a list the element that does not fit, else what the user typed.
QString unfit(const QString& option, const QString& given, const Misfit& misfit)
{
    return misfit.place.isEmpty() ? unfit(option, given, misfit.wanted)
                                  : unfit(option + misfit.place, misfit.given, misfit.wanted);
}

} // namespace

void addGlobalOptions(CLI::App& app, GlobalOptions& globals)
{
    app.set_version_flag("--version", "driver-host " DRIVER_HOST_VERSION,
                         "Print the version and end")
        ->group(globalGroup);
    app.add_option("--plugin", globals.plugin, "The driver module to use")
        ->option_text("FILE")
        ->group(globalGroup);
    app.add_option("--format", globals.format, "How results are written")
        ->option_text("text|json|csv, default text")
        ->group(globalGroup);
    app.add_flag("--quiet", globals.quiet, "Show results and failures only")->group(globalGroup);
    app.add_flag("--verbose", globals.verbose, "Show every frame and the module's log")
        ->group(globalGroup);
    app.add_flag("--no-color", globals.noColor, "No colours, as with NO_COLOR set")
        ->group(globalGroup);
}

QString unfit(const QString& option, const QString& given, const QString& wanted)
{
    return QStringLiteral("%1: '%2' is not %3").arg(option, given, wanted);
}

Subcommand::Subcommand(CLI::App& root, const CommandDescription& command,
                       const CommandDescription* connect, GlobalOptions& globals)
    : m_command(command),
      m_app(root.add_subcommand(command.name.toStdString(), command.description.toStdString()))
{
    addParameters(command, false);
    if (connect != nullptr && !command.isConnect()) {
        addParameters(*connect, true);
    }
    if (connect != nullptr) {
        m_app
            ->add_option("--connect-limit", m_connectLimitS, "Give up without a connection by then")
            ->transform(numberIn({1, longestConnectS}))
            ->option_text("S, default 120, none with --wait")
            ->group(connectGroup);
        m_link.addTo(*m_app, m_takenNames);
    }
    if (takesRepetition()) {
        addRepetition();
    }
    m_app->add_option("--param", m_params, "Pass a parameter that is not declared")
        ->option_text("KEY=VALUE, repeatable")
        ->allow_extra_args(false);
    addGlobalOptions(*m_app, globals);
}

void Subcommand::addParameters(const CommandDescription& command, bool ofConnect)
{
    for (const Declaration& declared : command.parameters) {
        if (find(declared.name) == nullptr) { // a command's own parameter goes before connect's
            addParameter(declared, ofConnect);
        }
    }
}

void Subcommand::addParameter(const Declaration& declared, bool ofConnect)
{
    ParameterOption& added = m_options.emplace_back();
    added.declared = declared;
    added.ofConnect = ofConnect;
    const std::string names = freeNames(declared.name);
    if (!names.empty()) {
        added.option = m_app->add_option(names, added.text, declared.description.toStdString());
        added.option->option_text(optionText(declared))
            ->group(ofConnect ? connectGroup : "Options");
    }
}

// The names under which a parameter can be given: its own and its kebab-case form, as far as they
// can be options and are no one else's.
std::string Subcommand::freeNames(const QString& parameter)
{
    static const QRegularExpression usable(QStringLiteral("^[A-Za-z][A-Za-z0-9_.-]*$"));
    QStringList names;
    for (const QString& name : {parameter, kebabCase(parameter)}) {
        if (usable.match(name).hasMatch() && !m_takenNames.contains(name)) {
            m_takenNames.insert(name);
            names.append(QLatin1String("--") + name);
        }
    }
    return names.join(QLatin1Char(',')).toStdString();
}

void Subcommand::addRepetition()
{
    m_app->add_option("--interval", m_intervalMs, "Time from one repetition to the next")
        ->transform(numberIn({1, longestIntervalMs}))
        ->option_text("MS");
    m_app->add_option("--count", m_count, "End after so many results")
        ->transform(numberIn({1, std::numeric_limits<int>::max()}))
        ->option_text("N");
    m_app->add_flag("--plain", m_plain, "On a terminal, too, each result on lines of its own");
}

const Subcommand::ParameterOption* Subcommand::find(const QString& parameter) const
{
    const auto it = std::find_if(m_options.cbegin(), m_options.cend(), [&](const auto& option) {
        return option.declared.name == parameter;
    });
    return it != m_options.cend() ? &*it : nullptr;
}

QString Subcommand::fill(Request& request) const
{
    QString error = fillOptions(request);
    if (error.isEmpty()) {
        error = fillParams(request);
    }
    fillNumbers(request);
    if (error.isEmpty()) {
        error = fillDefaults(request);
    }
    if (error.isEmpty()) {
        error = fillLink(request);
    }
    return error.isEmpty() ? missing(request) : error;
}

QString Subcommand::fillOptions(Request& request) const
{
    for (const ParameterOption& option : m_options) {
        if (option.option == nullptr || option.option->count() == 0) {
            continue;
        }
        QVariant value;
        Misfit misfit;
        const QString text = QString::fromStdString(option.text);
        if (!parseValue(option.declared.typeTag, text, value, &misfit)) {
            return unfit(optionName(option.declared.name), text, misfit);
        }
        ParameterMap& map = option.ofConnect ? request.connectParameters : request.parameters;
        map.insert(option.declared.name, value);
    }
    return {};
}

QString Subcommand::fillParams(Request& request) const
{
    for (const std::string& given : m_params) {
        QString error = fillParam(QString::fromStdString(given), request);
        if (!error.isEmpty()) {
            return error;
        }
    }
    return {};
}

QString Subcommand::fillParam(const QString& given, Request& request) const
{
    const int separator = given.indexOf(QLatin1Char('='));
    if (separator < 1) {
        return unfit(QStringLiteral("--param"), given, QStringLiteral("a KEY=VALUE"));
    }
    const QString key = given.left(separator);
    const QString text = given.mid(separator + 1);
    const ParameterOption* declared = find(key);
    QVariant value;
    Misfit misfit;
    const QString tag = declared != nullptr ? declared->declared.typeTag : QStringLiteral("vart");
    if (!parseValue(tag, text, value, &misfit)) {
        return unfit(QStringLiteral("--param %1").arg(key), text, misfit);
    }
    // What nobody declares may be meant for the command or for the connection: both get it.
    if (declared == nullptr || !declared->ofConnect) {
        request.parameters.insert(key, value);
    }
    if (declared == nullptr || declared->ofConnect) {
        request.connectParameters.insert(key, value);
    }
    return {};
}

void Subcommand::fillNumbers(Request& request) const
{
    request.plain = m_plain;
    request.count = m_count;
    request.connectLimitS = m_connectLimitS;
    if (m_intervalMs > 0) {
        request.parameters.insert(QStringLiteral("recurrentInterval"), m_intervalMs);
    }
}

QString Subcommand::fillLink(Request& request) const
{
    QString error = m_link.fill(request.link);
    if (request.link.keepTrying && m_app->count("--connect-limit") == 0) {
        request.connectLimitS = 0;
    }
    return error;
}

QString Subcommand::fillDefaults(Request& request) const
{
    QList<Declaration> own;
    QList<Declaration> connect;
    for (const ParameterOption& option : m_options) {
        (option.ofConnect ? connect : own).append(option.declared);
    }
    QString error;
    const bool fits = checkParameters(own, request.parameters, &error)
        && checkParameters(connect, request.connectParameters, &error);
    return fits ? QString() : error;
}

QString Subcommand::missing(const Request& request) const
{
    QStringList names;
    for (const ParameterOption& option : m_options) {
        const ParameterMap& map = option.ofConnect ? request.connectParameters : request.parameters;
        if (!map.contains(option.declared.name)) {
            names.append(option.option != nullptr
                             ? optionName(option.declared.name)
                             : QStringLiteral("--param %1=VALUE").arg(option.declared.name));
        }
    }
    return names.isEmpty()
        ? QString()
        : QStringLiteral("%1 needs %2").arg(m_command.name, names.join(QLatin1String(", ")));
}
