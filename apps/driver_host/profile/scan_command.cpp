#include "profile/scan_command.h"

CommandDescription scanCommand()
{
    CommandDescription command;
    command.name = QStringLiteral("scan");
    command.description = QStringLiteral("Find out what a device has, by reading only");
    return command;
}

std::optional<ScanPlan> scanPlan(const ModuleDescription& module)
{
    const Points::Profile& profile = module.profile;
    if (profile.tables.empty() || module.find(scanCommand().name) != nullptr) {
        return std::nullopt;
    }
    for (auto it = profile.commands.cbegin(); it != profile.commands.cend(); ++it) {
        if (it->use == Points::CommandProfile::Use::Read && it->once.isEmpty()) {
            ScanPlan plan;
            plan.command = it.key();
            return plan;
        }
    }
    return std::nullopt;
}
