#pragma once

#include <plugin_management/types.h>
#include <points/profile.h>

#include <QList>
#include <QString>

class DAbstractPlugin;

/// What a module declares about one of its commands.
struct CommandDescription
{
    QString name;
    QString stopName; ///< empty: the command ends by itself
    QString description;
    bool recurrent = false; ///< goes on until it is stopped
    QList<Declaration> parameters;
    QList<Declaration> results;

    /// True for the command that makes the connection for all others: "connect" by convention.
    bool isConnect() const;
    /// True for the parameters of a network address, by convention "host" and "port" of "connect":
    /// nobody needs them where a serial line is in its place.
    bool isAddress(const QString& parameter) const;
};

/// What a module tells about itself, and its profile of it: all that driver-host knows of it.
struct ModuleDescription
{
    QString file;
    QString name;
    QString version; ///< such as "1.0"
    QString uuid;
    QString type; ///< four characters, such as "Driv"
    QString interfaceId;
    QList<CommandDescription> commands;
    Points::Profile profile; ///< says nothing where the module has none

    /// The command \a name, null when the module has none.
    const CommandDescription* find(const QString& name) const;
    /// The command that makes the connection, null when the module needs none.
    const CommandDescription* connectCommand() const;
};

/// Reads the description off \a plugin, whose commands have been declared; \a file is its module.
ModuleDescription describeModule(const DAbstractPlugin& plugin, const QString& file);

/// A version number as versionFromString() packs it, as text: at least two fields.
QString versionText(quint64 version);
