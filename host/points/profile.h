#pragma once

#include <points/points_global.h>

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <vector>

// Values and functions without state: use them on any thread.

namespace Points {

/// One word for a table among those that a command takes, and how much one order may hold.
struct Access
{
    QString kind; ///< the value of the parameter with the role Kind
    int limit = 1; ///< items per order, 1 or more
    bool rawOnly = false; ///< the module takes the word, and does not do with it what is meant
};

/// A numbered row of words or bits in a device.
struct Table
{
    QString name; ///< as in "holdingRegisters:100"
    QStringList aliases;
    QString description; ///< one line: what it holds
    bool holdsBits = false;
    QString digit; ///< the first digit of the old numbers such as 40101; empty: it has none
    std::optional<Access> read; ///< of bits: packed as range_reading.h tells
    std::vector<Access> writes; ///< the smallest limit first

    static constexpr int size = 65536; ///< items that can be addressed, from 0

    /// The first of the ways to write \a count items that is not rawOnly; null: there is none.
    HOST_POINTS_EXPORT const Access* writeOf(int count) const;
    /// The most items that one order writes; 0: the table is read only.
    HOST_POINTS_EXPORT int mostWritten() const;
};

/// What a parameter is for.
enum class Role { None, Address, Count, Kind, Data, Host };

/// What a parameter takes beyond its type.
struct ParameterProfile
{
    QString description; ///< for people, one sentence without its full stop
    Role role = Role::None;
    QStringList words; ///< the only texts that are taken; empty: any
    std::optional<int> least;
    std::optional<int> most;
    bool mayBeEmpty = true;
    bool isDeclared = true; ///< false: the module reads it and declares it nowhere
};

/// The result by which a command tells whether the device has done what it was told.
struct Confirmation
{
    QString result;
    QVariantList value; ///< its value when the device has
    QString otherwise; ///< what any other one means, for people
};

/// What a command does beyond what its module says of it.
struct CommandProfile
{
    enum class Use { None, Read, Write }; ///< of tables

    QString description; ///< for people, one sentence without its full stop
    Use use = Use::None;
    QString once; ///< of a Read that goes on: the command that does the same once
    int intervalMs = 0; ///< of a Read that goes on: from one reading to the next by default
    QString values; ///< of a Read: the result that has what was read
    QStringList examples; ///< what one may give it, as options of driver-host
    QMap<QString, ParameterProfile> parameters;
    QMap<QString, QString> results; ///< what they are, for people
    std::optional<Confirmation> confirmed;

    /// The name of the parameter with this role; empty when there is none.
    HOST_POINTS_EXPORT QString parameterOf(Role role) const;
};

/// What a failure may mean, and what to do about it.
struct Hint
{
    QString failure; ///< "device_exception", "timeout", "keep_alive_lost"
    int exception = 0; ///< only for this one; 0: any
    QString text; ///< for people, without a full stop
};

/// What a person has to know of a module beyond what the module itself declares. It stands in a
/// JSON file beside the module (see docs/host-kit.md).
struct Profile
{
    std::vector<Table> tables;
    QMap<QString, CommandProfile> commands;
    std::vector<Hint> hints;
    QList<int> absentTable; ///< exceptions that say that a device has no such table at all

    /// The command \a name, null when nothing is said of it.
    HOST_POINTS_EXPORT const CommandProfile* command(const QString& name) const;
    /// The table that the word \a kind of a command of this use stands for; null: none.
    HOST_POINTS_EXPORT const Table* tableOf(CommandProfile::Use use, const QString& kind) const;
    /// What one order of this use with the word \a kind may hold; null: no such word.
    HOST_POINTS_EXPORT const Access* accessOf(CommandProfile::Use use, const QString& kind) const;
};

/// A profile, or what is wrong with it.
struct ProfileReading
{
    Profile profile;
    QString error; ///< the place and what is wrong there, one line; empty: nothing
};

/// Reads the text of a profile.
HOST_POINTS_EXPORT ProfileReading profileFrom(const QByteArray& json);
/// The profile's file beside \a module: "libx.so" has "libx.profile.json".
HOST_POINTS_EXPORT QString profileFile(const QString& module);
/// What the profile says of commands and parameters that a module does not declare (\a declared:
/// the parameters and results by command), or leaves out that it needs; empty: nothing.
HOST_POINTS_EXPORT QString misfit(const Profile& profile,
                                  const QMap<QString, QStringList>& declared);

} // namespace Points
