#pragma once

#include "cli/module_description.h"

#include <plugin_management/i_plugin.h>

#include <QString>

#include <memory>

/// A working object of a module.
struct PluginObject
{
    DAbstractPlugin* plugin = nullptr; ///< its commands are declared; null when there is none
    std::unique_ptr<IPlugin> owner; ///< owns plugin
};

/// A new object from \a maker, named \a name; none when it makes no object of this host's kind.
PluginObject makeObject(const IPlugin& maker, const QString& name);

/// A loaded module with one working object, or why there is none.
struct Module
{
    PluginObject object;
    ModuleDescription description;
    QString error;
    QString profileError; ///< what is wrong with its profile, which is ignored then
};

/// Loads \a file, or the driver module that comes with this program when \a file is empty, and
/// makes an object named \a objectName.
Module loadModule(const QString& file, const QString& objectName);
