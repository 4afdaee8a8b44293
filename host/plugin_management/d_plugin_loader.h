#pragma once

#include <plugin_management/plugin_management_global.h>

#include <QString>

class DAbstractPlugin;

/// Loads plug-in modules, and says why when it cannot.
namespace DPluginLoader {

enum class Reason {
    None,
    NoSuchFile,
    NotAPlugin, ///< no Qt plug-in metadata in the file
    OtherQt, ///< built for a Qt that this one cannot load
    OtherInterface, ///< a Qt plug-in, but none of this framework's
    LoadFailed, ///< the dynamic linker refused it, such as for a missing symbol
    NoUsableObject, ///< loaded, but its root object is no plug-in object
};

struct Result
{
    /// Runs no orders, but makes objects that do by createInstance(). Owned by the module, which
    /// stays loaded; null on failure.
    DAbstractPlugin* root = nullptr;
    Reason reason = Reason::None;
    QString text; ///< on failure: what, why and what to do, one line

    explicit operator bool() const { return root != nullptr; }
};

/// Loads the module \a file, a path. Its metadata are judged before any of its code runs, and all
/// its symbols are resolved at once. The root object lives on the calling thread; loading the same
/// file again gives the same one. A file that is made to deceive may crash the process.
HOST_PLUGIN_MANAGEMENT_EXPORT Result load(const QString& file);

} // namespace DPluginLoader
