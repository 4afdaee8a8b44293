#include <plugin_management/link_options.h>

#include <plugin_management/parameter_check.h>

#include <algorithm>
#include <array>

namespace {

// What is wrong with a value; nothing when it was taken.
using Reader = QString (*)(const QVariant& given, LinkOptions& options);

struct Option
{
    const char* name;
    const char* form;
    const char* description;
    Reader read;
};

template <bool LinkOptions::*flag>
QString readFlag(const QVariant& given, LinkOptions& options)
{
    QVariant value = given;
    Misfit misfit;
    if (!checkValue(QStringLiteral("bool"), value, &misfit)) {
        return QStringLiteral("'%1' is not %2").arg(misfit.given, misfit.wanted);
    }
    options.*flag = value.toBool();
    return {};
}

constexpr std::array<Option, 1> all{{
    {"keepTrying", "", "Keep trying until there is a first connection",
     readFlag<&LinkOptions::keepTrying>},
}};

QString unknown()
{
    QStringList names;
    for (const Option& option : all) {
        names.append(QLatin1String(option.name));
    }
    return QStringLiteral("there is no such link option; there are %1")
        .arg(names.join(QLatin1String(", ")));
}

} // namespace

QList<LinkOptionDescription> linkOptionDescriptions()
{
    QList<LinkOptionDescription> descriptions;
    for (const Option& option : all) {
        descriptions.append({QLatin1String(option.name), QLatin1String(option.form),
                             QLatin1String(option.description)});
    }
    return descriptions;
}

bool readLinkOptions(const ParameterMap& given, LinkOptions& options, LinkOptionFault& fault)
{
    options = {};
    for (auto it = given.cbegin(); it != given.cend(); ++it) {
        const auto* option = std::find_if(all.cbegin(), all.cend(), [&](const Option& each) {
            return it.key() == QLatin1String(each.name);
        });
        fault = {it.key(), option != all.cend() ? option->read(it.value(), options) : unknown()};
        if (!fault.text.isEmpty()) {
            return false;
        }
    }
    return true;
}

QString linkOptionsRefusal(const LinkOptions& options)
{
    Q_UNUSED(options)
    return {};
}
