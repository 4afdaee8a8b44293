#pragma once

#include <plugin_management/link_options.h>

#include <CLI/CLI.hpp>
#include <QSet>

#include <deque>
#include <string>

/// The link options of a subcommand: `--wait` for "keepTrying", the others under their own names
/// in kebab case.
///
/// Stays where it is: the parser keeps references into it.
class LinkArguments
{
public:
    LinkArguments() = default;
    Q_DISABLE_COPY(LinkArguments)

    /// Adds them to \a app, but for those whose names are among \a takenNames.
    void addTo(CLI::App& app, const QSet<QString>& takenNames);
    /// Puts what was given into \a options; answers what is wrong with it, or nothing.
    QString fill(LinkOptions& options) const;

private:
    struct Argument
    {
        QString name; // of the link option
        QString option; // as users write it
        CLI::Option* parsed = nullptr;
        std::string text;
        bool isSet = false; // of one that takes no value
    };

    QVariant valueOf(const Argument& argument) const;
    QString optionOf(const QString& name) const;

    std::deque<Argument> m_arguments;
};
