#pragma once

#include "cli/module_description.h"

#include <points/address.h>
#include <points/value_codec.h>

#include <string>

namespace CLI {
class App;
}

struct Request;

/// The options by which a command that reads or writes tables takes values that people mean: an
/// address with its table, data types, orders, scales, and any length.
///
/// Stays where it is: the parser keeps references into it.
class PointOptions
{
public:
    /// \a command is one of the module's, with a use in its profile. Both must outlive it.
    PointOptions(const ModuleDescription& module, const CommandDescription& command);

    Q_DISABLE_COPY(PointOptions)

    /// All names that it may add to a command.
    static const QStringList& names();
    void add(CLI::App& app);
    /// Makes a request of what was given: the text of the address, that of the data of a write, and
    /// what stands in the request already. Answers what is wrong, or nothing.
    QString fill(const QString& address, const QString& data, Request& request) const;

private:
    // What the address means: a table, a place in it, and the word for it that was given.
    struct Target
    {
        Points::Address address;
        QString kind; // empty: the table was given
    };

    bool isRead() const { return m_profile.use == Points::CommandProfile::Use::Read; }
    QString name(Points::Role role) const;
    bool isFormatted() const;
    QString findTarget(const QString& text, const Request& request, Target& target) const;
    QString countedTarget(const QString& text, const QString& kind, Target& target) const;
    QString readFormat(const Points::Table& table, Points::ValueFormat& format) const;
    QString readNumbers(Points::ValueFormat& format) const;
    QString fillRead(const Target& target, Request& request) const;
    QString fillRawRead(const Target& target, Request& request) const;
    QString itemCount(const Points::ValueFormat& format, const Request& request, int& items) const;
    void plan(const Target& target, const Points::ValueFormat& format, int items,
              Request& request) const;
    QString fillWrite(const Target& target, const QString& data, Request& request) const;
    QString tooMany(const Target& target, int count) const;
    QString encodeAll(const QString& data, const Points::ValueFormat& format,
                      Points::Words& items) const;
    void fillItems(const Target& target, const Points::Words& items, Request& request) const;

    const ModuleDescription& m_module;
    const CommandDescription& m_command;
    const Points::CommandProfile& m_profile;
    std::string m_type;
    std::string m_order;
    std::string m_scale;
    std::string m_offset;
    std::string m_unit;
    int m_values = 0; // 0: not given
    bool m_raw = false;
};
