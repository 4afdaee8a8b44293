#include "cli/module_info.h"

#include "cli/module_description.h"
#include "output/value_text.h"
#include "profile/profile_info.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

QString declarationText(const char* kind, const Declaration& declared, const QString& rule)
{
    const QString standard = declared.defaultValue.isValid()
        ? QStringLiteral(", default %1").arg(plainText(declared.defaultValue))
        : QString();
    return QStringLiteral("  %1 %2 (%3%4): %5\n")
        .arg(QLatin1String(kind), declared.name, declared.typeTag, standard,
             declared.description + rule);
}

Points::ParameterProfile ruleOf(const Points::Profile& profile, const CommandDescription& command,
                                const QString& parameter)
{
    const Points::CommandProfile* known = profile.command(command.name);
    return known != nullptr ? known->parameters.value(parameter) : Points::ParameterProfile();
}

QString commandText(const CommandDescription& command, const Points::Profile& profile)
{
    const QString stop = command.stopName.isEmpty()
        ? QString()
        : QStringLiteral(" (stopped by %1)").arg(command.stopName);
    QString text = QStringLiteral("\n%1%2: %3\n").arg(command.name, stop, command.description);
    for (const Declaration& parameter : command.parameters) {
        text += declarationText("parameter", parameter,
                                ruleText(ruleOf(profile, command, parameter.name)));
    }
    for (const Declaration& result : command.results) {
        text += declarationText("result", result, {});
    }
    return text;
}

QJsonObject declarationJson(const Declaration& declared)
{
    return {{QStringLiteral("name"), declared.name},
            {QStringLiteral("type"), declared.typeTag},
            {QStringLiteral("description"), declared.description},
            {QStringLiteral("default"), jsonValue(declared.defaultValue)}};
}

QJsonArray parametersJson(const CommandDescription& command, const Points::Profile& profile)
{
    QJsonArray array;
    for (const Declaration& declared : command.parameters) {
        QJsonObject object = declarationJson(declared);
        const QJsonObject rule = ruleJson(ruleOf(profile, command, declared.name));
        for (auto it = rule.begin(); it != rule.end(); ++it) {
            object.insert(it.key(), it.value());
        }
        array.append(object);
    }
    return array;
}

QJsonArray resultsJson(const CommandDescription& command)
{
    QJsonArray array;
    for (const Declaration& declared : command.results) {
        array.append(declarationJson(declared));
    }
    return array;
}

QJsonArray commandsJson(const ModuleDescription& module)
{
    QJsonArray array;
    for (const CommandDescription& command : module.commands) {
        array.append(QJsonObject{
            {QStringLiteral("name"), command.name},
            {QStringLiteral("stopName"), jsonValue(command.stopName)},
            {QStringLiteral("description"), command.description},
            {QStringLiteral("recurrent"), command.recurrent},
            {QStringLiteral("parameters"), parametersJson(command, module.profile)},
            {QStringLiteral("results"), resultsJson(command)},
        });
    }
    return array;
}

} // namespace

QString moduleInfoText(const ModuleDescription& module)
{
    QString text = QStringLiteral("name:      %1\n"
                                  "version:   %2\n"
                                  "uuid:      %3\n"
                                  "type:      %4\n"
                                  "interface: %5\n"
                                  "file:      %6\n")
                       .arg(module.name, module.version, module.uuid, module.type,
                            module.interfaceId, module.file);
    for (const CommandDescription& command : module.commands) {
        text += commandText(command, module.profile);
    }
    return text + tablesText(module.profile);
}

QString moduleInfoJson(const ModuleDescription& module)
{
    const QJsonObject object{
        {QStringLiteral("name"), module.name},
        {QStringLiteral("version"), module.version},
        {QStringLiteral("uuid"), module.uuid},
        {QStringLiteral("type"), module.type},
        {QStringLiteral("interface"), module.interfaceId},
        {QStringLiteral("file"), module.file},
        {QStringLiteral("commands"), commandsJson(module)},
        {QStringLiteral("tables"), tablesJson(module.profile)},
    };
    return compactJson(object) + QLatin1Char('\n');
}
