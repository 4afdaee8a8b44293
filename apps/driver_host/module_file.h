#pragma once

#include "module_description.h"

#include <plugin_management/i_plugin.h>

#include <QString>

#include <memory>

/// A loaded module with one working object, or why there is none.
struct Module
{
    DAbstractPlugin* device = nullptr; ///< the object, its commands declared; null on failure
    std::unique_ptr<IPlugin> owner; ///< owns device
    ModuleDescription description;
    QString error;
};

/// Loads \a file, or the driver module that comes with this program when \a file is empty, and
/// makes an object named \a objectName.
Module loadModule(const QString& file, const QString& objectName);
