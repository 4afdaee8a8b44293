#include "cli/module_info.h"

#include "cli/module_description.h"
#include "output/value_text.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

QString declarationText(const char* kind, const Declaration& declared)
{
    const QString standard = declared.defaultValue.isValid()
        ? QStringLiteral(", default %1").arg(plainText(declared.defaultValue))
        : QString();
    return QStringLiteral("  %1 %2 (%3%4): %5\n")
        .arg(QLatin1String(kind), declared.name, declared.typeTag, standard, declared.description);
}

QString commandText(const CommandDescription& command)
{
    const QString stop = command.stopName.isEmpty()
        ? QString()
        : QStringLiteral(" (stopped by %1)").arg(command.stopName);
    QString text = QStringLiteral("\n%1%2: %3\n").arg(command.name, stop, command.description);
    for (const Declaration& parameter : command.parameters) {
        text += declarationText("parameter", parameter);
    }
    for (const Declaration& result : command.results) {
        text += declarationText("result", result);
    }
    return text;
}

QJsonArray declarationsJson(const QList<Declaration>& declarations)
{
    QJsonArray array;
    for (const Declaration& declared : declarations) {
        array.append(QJsonObject{{QStringLiteral("name"), declared.name},
                                 {QStringLiteral("type"), declared.typeTag},
                                 {QStringLiteral("description"), declared.description},
                                 {QStringLiteral("default"), jsonValue(declared.defaultValue)}});
    }
    return array;
}

QJsonArray commandsJson(const QList<CommandDescription>& commands)
{
    QJsonArray array;
    for (const CommandDescription& command : commands) {
        array.append(QJsonObject{
            {QStringLiteral("name"), command.name},
            {QStringLiteral("stopName"), jsonValue(command.stopName)},
            {QStringLiteral("description"), command.description},
            {QStringLiteral("recurrent"), command.recurrent},
            {QStringLiteral("parameters"), declarationsJson(command.parameters)},
            {QStringLiteral("results"), declarationsJson(command.results)},
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
        text += commandText(command);
    }
    return text;
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
        {QStringLiteral("commands"), commandsJson(module.commands)},
    };
    return compactJson(object) + QLatin1Char('\n');
}
