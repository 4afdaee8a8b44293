#include <points/profile.h>

#include <algorithm>
#include <array>

namespace Points {

namespace {

using Use = CommandProfile::Use;

const Access* find(const std::vector<Access>& accesses, const QString& kind)
{
    const auto it = std::find_if(accesses.begin(), accesses.end(),
                                 [&](const Access& access) { return access.kind == kind; });
    return it != accesses.end() ? &*it : nullptr;
}

const Access* accessIn(const Table& table, Use use, const QString& kind)
{
    if (use == Use::Write) {
        return find(table.writes, kind);
    }
    return use == Use::Read && table.read && table.read->kind == kind ? &*table.read : nullptr;
}

QString commandMisfit(const QString& name, const CommandProfile& command,
                      const QStringList& declared)
{
    for (auto it = command.parameters.cbegin(); it != command.parameters.cend(); ++it) {
        if (it->isDeclared && !declared.contains(it.key())) {
            return QStringLiteral(
                       "commands.%1.parameters.%2: the module declares no such parameter")
                .arg(name, it.key());
        }
    }
    for (auto it = command.results.cbegin(); it != command.results.cend(); ++it) {
        if (!declared.contains(it.key())) {
            return QStringLiteral("commands.%1.results.%2: the module declares no such result")
                .arg(name, it.key());
        }
    }
    return {};
}

} // namespace

const Access* Table::writeOf(int count) const
{
    const auto it = std::find_if(writes.begin(), writes.end(), [&](const Access& access) {
        return !access.rawOnly && access.limit >= count;
    });
    return it != writes.end() ? &*it : nullptr;
}

int Table::mostWritten() const
{
    int most = 0;
    for (const Access& access : writes) {
        most = access.rawOnly ? most : std::max(most, access.limit);
    }
    return most;
}

QString CommandProfile::parameterOf(Role role) const
{
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        if (it->role == role) {
            return it.key();
        }
    }
    return {};
}

const CommandProfile* Profile::command(const QString& name) const
{
    const auto it = commands.constFind(name);
    return it != commands.cend() ? &*it : nullptr;
}

const Table* Profile::tableOf(Use use, const QString& kind) const
{
    const auto it = std::find_if(tables.begin(), tables.end(), [&](const Table& table) {
        return accessIn(table, use, kind) != nullptr;
    });
    return it != tables.end() ? &*it : nullptr;
}

const Access* Profile::accessOf(Use use, const QString& kind) const
{
    const Table* table = tableOf(use, kind);
    return table != nullptr ? accessIn(*table, use, kind) : nullptr;
}

QString profileFile(const QString& module)
{
    const int slash = module.lastIndexOf(QLatin1Char('/'));
    const int dot = module.lastIndexOf(QLatin1Char('.'));
    return (dot > slash ? module.left(dot) : module) + QLatin1String(".profile.json");
}

QString misfit(const Profile& profile, const QMap<QString, QStringList>& declared)
{
    for (auto it = profile.commands.cbegin(); it != profile.commands.cend(); ++it) {
        const auto known = declared.constFind(it.key());
        QString error = known == declared.cend()
            ? QStringLiteral("commands.%1: the module has no such command").arg(it.key())
            : commandMisfit(it.key(), *it, *known);
        if (!error.isEmpty()) {
            return error;
        }
    }
    return {};
}

} // namespace Points
