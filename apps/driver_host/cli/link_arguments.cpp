#include "cli/link_arguments.h"

#include "cli/option_text.h"

namespace {

constexpr const char* group = "Link options";

QString nameOf(const QString& linkOption)
{
    return linkOption == QLatin1String("keepTrying") ? QStringLiteral("wait")
                                                     : kebabCase(linkOption);
}

} // namespace

void LinkArguments::addTo(CLI::App& app, const QSet<QString>& takenNames)
{
    for (const LinkOptionDescription& each : linkOptionDescriptions()) {
        const QString name = nameOf(each.name);
        if (takenNames.contains(name)) {
            continue;
        }
        Argument& added = m_arguments.emplace_back();
        added.name = each.name;
        added.option = QLatin1String("--") + name;
        const std::string option = added.option.toStdString();
        const std::string description = each.description.toStdString();
        added.parsed = each.form.isEmpty() ? app.add_flag(option, added.isSet, description)
                                           : app.add_option(option, added.text, description);
        added.parsed->option_text(each.form.toStdString())->group(group);
    }
}

QString LinkArguments::fill(LinkOptions& options) const
{
    ParameterMap given;
    for (const Argument& argument : m_arguments) {
        if (argument.parsed->count() > 0) {
            given.insert(argument.name, valueOf(argument));
        }
    }
    LinkOptionFault fault;
    if (!readLinkOptions(given, options, fault)) {
        return QStringLiteral("%1: %2").arg(optionOf(fault.option), fault.text);
    }
    return linkOptionsRefusal(options);
}

QVariant LinkArguments::valueOf(const Argument& argument) const
{
    return argument.isSet ? QVariant(true) : QVariant(QString::fromStdString(argument.text));
}

QString LinkArguments::optionOf(const QString& name) const
{
    for (const Argument& argument : m_arguments) {
        if (argument.name == name) {
            return argument.option;
        }
    }
    return name;
}
