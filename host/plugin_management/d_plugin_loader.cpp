#include <plugin_management/d_plugin_loader.h>

#include <plugin_management/d_abstract_plugin.h>

#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

namespace DPluginLoader {

namespace {

const QLatin1String interfacePrefix("fr.vexo.rd.box.");

Result refusal(Reason reason, const QString& file, const QString& why)
{
    return {nullptr, reason, QStringLiteral("cannot load '%1': %2").arg(file, why)};
}

QString qtVersionText(int version)
{
    return QStringLiteral("%1.%2").arg(version >> 16 & 0xFF).arg(version >> 8 & 0xFF);
}

// Qt's own rule: the same major version, and not newer than the Qt that runs.
bool builtForThisQt(int version)
{
    const bool sameMajor = (version & 0xFF0000) == (QT_VERSION & 0xFF0000);
    return sameMajor && (version & 0xFFFF00) <= (QT_VERSION & 0xFFFF00);
}

Result judgeMetadata(const QString& file, const QJsonObject& metadata)
{
    const QString interfaceId = metadata.value(QStringLiteral("IID")).toString();
    const int version = metadata.value(QStringLiteral("version")).toInt();
    if (interfaceId.isEmpty()) {
        return refusal(Reason::NotAPlugin, file,
                       QStringLiteral("it is not a Qt plug-in; name a driver module, such as "
                                      "libp_driver_modbus.so"));
    }
    if (!builtForThisQt(version)) {
        return refusal(Reason::OtherQt, file,
                       QStringLiteral("it was built for Qt %1 and this is Qt %2; build it again "
                                      "with this Qt")
                           .arg(qtVersionText(version), qtVersionText(QT_VERSION)));
    }
    if (!interfaceId.startsWith(interfacePrefix)) {
        return refusal(Reason::OtherInterface, file,
                       QStringLiteral("it is a plug-in with the interface '%1', not a driver "
                                      "module ('%2...')")
                           .arg(interfaceId, interfacePrefix));
    }
    return {};
}

} // namespace

Result load(const QString& file)
{
    const QFileInfo info(file);
    if (!info.isFile()) {
        return refusal(Reason::NoSuchFile, file,
                       QStringLiteral("there is no such file; check the path"));
    }
    QPluginLoader loader(info.absoluteFilePath());
    Result judged = judgeMetadata(file, loader.metaData());
    if (judged.reason != Reason::None) {
        return judged;
    }
    // A missing symbol must refuse the module now, not end the host when it is first called.
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
    if (!loader.load()) {
        return refusal(Reason::LoadFailed, file, loader.errorString().simplified());
    }
    auto* root = qobject_cast<DAbstractPlugin*>(loader.instance());
    if (root == nullptr) {
        return refusal(Reason::NoUsableObject, file,
                       QStringLiteral("its root object is not a plug-in object of this host; "
                                      "build it against this host's kit"));
    }
    return {root, Reason::None, {}};
}

} // namespace DPluginLoader
