#include "cli/module_description.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

#include <algorithm>

namespace {

CommandDescription describeCommand(const DAbstractCommand& command)
{
    return {command.commandName(), command.stopCommandName(),  command.description(),
            command.isRecurrent(), command.commandArguments(), command.commandResults()};
}

// Four ASCII characters packed big-endian into a number.
QString typeText(quint32 type)
{
    QString text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += QLatin1Char(char(type >> shift & 0xFF));
    }
    return text;
}

} // namespace

bool CommandDescription::isConnect() const { return name == QLatin1String("connect"); }

bool CommandDescription::isAddress(const QString& parameter) const
{
    return isConnect()
        && (parameter == QLatin1String("host") || parameter == QLatin1String("port"));
}

const CommandDescription* ModuleDescription::find(const QString& name) const
{
    const auto it = std::find_if(commands.cbegin(), commands.cend(),
                                 [&](const auto& known) { return known.name == name; });
    return it != commands.cend() ? &*it : nullptr;
}

const CommandDescription* ModuleDescription::connectCommand() const
{
    const auto it = std::find_if(commands.cbegin(), commands.cend(),
                                 [](const auto& known) { return known.isConnect(); });
    return it != commands.cend() ? &*it : nullptr;
}

ModuleDescription describeModule(const DAbstractPlugin& plugin, const QString& file)
{
    ModuleDescription module;
    module.file = file;
    module.name = plugin.pluginName();
    module.version = versionText(plugin.pluginVersion());
    module.uuid = plugin.pluginUuid().toString();
    module.type = typeText(plugin.pluginType());
    module.interfaceId = QPluginLoader(QFileInfo(file).absoluteFilePath())
                             .metaData()
                             .value(QStringLiteral("IID"))
                             .toString();
    for (const QString& name : plugin.commandNames()) {
        module.commands.append(describeCommand(*plugin.command(name)));
    }
    return module;
}

QString versionText(quint64 version)
{
    QString text;
    for (int shift = 48; shift >= 0 && (shift >= 32 || version != 0); shift -= 16) {
        text += QLatin1String(text.isEmpty() ? "" : ".") + QString::number(version >> 48);
        version <<= 16;
    }
    return text;
}
