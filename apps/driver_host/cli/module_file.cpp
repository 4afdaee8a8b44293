#include "cli/module_file.h"

#include "profile/module_profile.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QFileInfo>

namespace {

// The module's place in the build tree and in an installed one, as seen from the program.
QStringList usualFiles()
{
    const QString folder = QCoreApplication::applicationDirPath() + QLatin1Char('/');
    const QString name = QStringLiteral("/libp_driver_modbus.so");
    return {folder + QLatin1String("../lib/plugins") + name,
            folder + QLatin1String(DRIVER_HOST_PLUGIN_FOLDER) + name};
}

QString usualFile()
{
    const QStringList files = usualFiles();
    for (const QString& file : files) {
        if (QFileInfo::exists(file)) {
            return QFileInfo(file).canonicalFilePath();
        }
    }
    return files.first();
}

} // namespace

PluginObject makeObject(const IPlugin& maker, const QString& name)
{
    PluginObject object;
    object.owner.reset(maker.createInstance(QUuid::createUuid()));
    object.plugin = dynamic_cast<DAbstractPlugin*>(object.owner.get());
    if (object.plugin != nullptr) {
        object.plugin->setObjectName(name);
        object.plugin->initPluginCommands();
    }
    return object;
}

Module loadModule(const QString& file, const QString& objectName)
{
    Module module;
    const QString path = file.isEmpty() ? usualFile() : file;
    const DPluginLoader::Result loaded = DPluginLoader::load(path);
    if (!loaded) {
        module.error = loaded.text;
        return module;
    }
    module.object = makeObject(*loaded.root, objectName);
    if (module.object.plugin == nullptr) {
        module.error =
            QStringLiteral("cannot use '%1': it makes no object of this host's kind").arg(path);
        return module;
    }
    module.description = describeModule(*module.object.plugin, path);
    module.profileError = addProfile(module.description);
    return module;
}
