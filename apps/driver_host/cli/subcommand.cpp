#include "cli/subcommand.h"

#include "cli/option_label.h"
#include "cli/option_text.h"
#include "cli/value_parser.h"
#include "output/value_text.h"
#include "profile/parameter_rules.h"

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

Subcommand::Subcommand(CLI::App& root, const CommandDescription& command,
                       const ModuleDescription& module, GlobalOptions& globals)
    : m_module(module), m_command(command),
      m_app(root.add_subcommand(command.name.toStdString(), command.description.toStdString()))
{
    const CommandDescription* connect = module.connectCommand();
    const Points::CommandProfile* profile = module.profile.command(command.name);
    if (profile != nullptr && profile->use != Points::CommandProfile::Use::None) {
        for (const QString& name : PointOptions::names()) {
            m_takenNames.insert(name);
        }
        m_points.emplace(module, command);
    }
    addParameters(command, false);
    if (m_points) {
        m_points->add(*m_app);
    }
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
    if (profile != nullptr) {
        m_app->footer(examplesText(command.name, *profile) + root.get_footer());
    }
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
        added.option->option_text(optionText(declared, profileOf(added)))
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
    m_app->add_option("--append", m_append, "Add the results to this CSV file as well")
        ->option_text("FILE");
    m_app->add_flag("--plain", m_plain, "On a terminal, too, each result on lines of its own");
}

const Subcommand::ParameterOption* Subcommand::find(const QString& parameter) const
{
    const auto it = std::find_if(m_options.cbegin(), m_options.cend(), [&](const auto& option) {
        return option.declared.name == parameter;
    });
    return it != m_options.cend() ? &*it : nullptr;
}

const Points::ParameterProfile* Subcommand::profileOf(const ParameterOption& option) const
{
    const CommandDescription* connect = m_module.connectCommand();
    const QString command = option.ofConnect && connect != nullptr ? connect->name : m_command.name;
    const Points::CommandProfile* profile = m_module.profile.command(command);
    if (profile == nullptr) {
        return nullptr;
    }
    const auto known = profile->parameters.constFind(option.declared.name);
    return known != profile->parameters.cend() ? &*known : nullptr;
}

Points::Role Subcommand::roleOf(const ParameterOption& option) const
{
    const Points::ParameterProfile* profile = profileOf(option);
    return profile != nullptr ? profile->role : Points::Role::None;
}

// Their texts mean more than their type tells.
bool Subcommand::isLeftToPoints(const ParameterOption& option) const
{
    const Points::Role role = roleOf(option);
    return m_points && (role == Points::Role::Address || role == Points::Role::Data);
}

QString Subcommand::fill(Request& request) const
{
    QString error = fillOptions(request);
    if (error.isEmpty()) {
        error = fillParams(request);
    }
    fillNumbers(request);
    if (error.isEmpty()) {
        error = fillPoints(request);
    }
    if (error.isEmpty()) {
        error = fillDefaults(request);
    }
    if (error.isEmpty()) {
        error = fillLink(request);
    }
    if (error.isEmpty()) {
        error = missing(request);
    }
    return error.isEmpty() ? checkRules(request) : error;
}

QString Subcommand::textOf(Points::Role role, const Request& request) const
{
    for (const ParameterOption& option : m_options) {
        if (!option.ofConnect && roleOf(option) == role) {
            return option.text.empty() ? plainText(request.parameters.value(option.declared.name))
                                       : QString::fromStdString(option.text);
        }
    }
    return {};
}

QString Subcommand::fillPoints(Request& request) const
{
    return m_points ? m_points->fill(textOf(Points::Role::Address, request),
                                     textOf(Points::Role::Data, request), request)
                    : QString();
}

QString Subcommand::checkRules(Request& request) const
{
    for (const ParameterOption& option : m_options) {
        const Points::ParameterProfile* profile = profileOf(option);
        ParameterMap& map = option.ofConnect ? request.connectParameters : request.parameters;
        const bool isLeftOut = !map.contains(option.declared.name); // as not needed
        if (profile == nullptr || profile->role == Points::Role::Kind || isLeftOut) {
            continue; // kinds are chosen where points are
        }
        QString error =
            checkRule(optionName(option.declared.name), *profile, map[option.declared.name]);
        if (!error.isEmpty()) {
            return error;
        }
    }
    return {};
}

void Subcommand::note(const QString& name, Request& request) const
{
    QStringList known{QStringLiteral("recurrentInterval")};
    for (const ParameterOption& option : m_options) {
        known.append(option.declared.name);
    }
    const QString text = undeclaredNote(name, known, m_module.profile);
    if (!text.isEmpty() && !request.notes.contains(text)) {
        request.notes.append(text);
    }
}

QString Subcommand::fillOptions(Request& request) const
{
    for (const ParameterOption& option : m_options) {
        const bool isGiven = option.option != nullptr && option.option->count() > 0;
        if (!isGiven || isLeftToPoints(option)) {
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
    if (declared == nullptr) {
        note(key, request);
    }
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
    request.append = QString::fromStdString(m_append);
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

bool Subcommand::isNeeded(const ParameterOption& option, const Request& request) const
{
    const CommandDescription* connect = m_module.connectCommand();
    const CommandDescription& command = option.ofConnect ? *connect : m_command;
    return request.link.serial.isEmpty() || !command.isAddress(option.declared.name);
}

QString Subcommand::missing(const Request& request) const
{
    QStringList names;
    for (const ParameterOption& option : m_options) {
        const ParameterMap& map = option.ofConnect ? request.connectParameters : request.parameters;
        if (!map.contains(option.declared.name) && isNeeded(option, request)) {
            names.append(option.option != nullptr
                             ? optionName(option.declared.name)
                             : QStringLiteral("--param %1=VALUE").arg(option.declared.name));
        }
    }
    return names.isEmpty()
        ? QString()
        : QStringLiteral("%1 needs %2").arg(m_command.name, names.join(QLatin1String(", ")));
}
