#include "profile/module_profile.h"

#include <QFile>

namespace {

QMap<QString, QStringList> declaredNames(const ModuleDescription& module)
{
    QMap<QString, QStringList> names;
    for (const CommandDescription& command : module.commands) {
        QStringList& own = names[command.name];
        for (const Declaration& declared : command.parameters + command.results) {
            own.append(declared.name);
        }
    }
    return names;
}

void describe(CommandDescription& command, const Points::CommandProfile& profile)
{
    command.description = profile.description;
    for (Declaration& declared : command.parameters) {
        const auto known = profile.parameters.constFind(declared.name);
        declared.description =
            known != profile.parameters.cend() ? known->description : declared.description;
    }
    for (Declaration& declared : command.results) {
        declared.description = profile.results.value(declared.name, declared.description);
    }
}

} // namespace

QString addProfile(ModuleDescription& module)
{
    QFile file(Points::profileFile(module.file));
    if (!file.exists()) {
        return {};
    }
    const QString ignored = QStringLiteral("%1: %2; the profile is ignored");
    if (!file.open(QIODevice::ReadOnly)) {
        return ignored.arg(file.fileName(), file.errorString());
    }
    const Points::ProfileReading reading = Points::profileFrom(file.readAll());
    const QString error = reading.error.isEmpty()
        ? Points::misfit(reading.profile, declaredNames(module))
        : reading.error;
    if (!error.isEmpty()) {
        return ignored.arg(file.fileName(), error);
    }
    module.profile = reading.profile;
    for (CommandDescription& command : module.commands) {
        if (const auto* profile = module.profile.command(command.name)) {
            describe(command, *profile);
        }
    }
    return {};
}
