#include "cli/option_label.h"

#include "output/value_text.h"

#include <array>
#include <utility>

namespace {

// How the help shows what an option of this type takes.
constexpr std::array<std::pair<const char*, const char*>, 5> typeLabels{{
    {"strg", "TEXT"},
    {"ui16", "0..65535"},
    {"bool", "true|false"},
    {"varM", "JSON"},
    {"varL", "VALUE,..."},
}};

std::string typeLabel(const QString& tag)
{
    for (const auto& [known, label] : typeLabels) {
        if (tag == QLatin1String(known)) {
            return label;
        }
    }
    return "VALUE[,...]";
}

// What a profile says, in place of what the type says.
std::string labelOf(const Declaration& declared, const Points::ParameterProfile* profile)
{
    if (profile == nullptr) {
        return typeLabel(declared.typeTag);
    }
    if (profile->role == Points::Role::Address) {
        return "ADDRESS";
    }
    if (!profile->words.isEmpty()) {
        return profile->words.join(QLatin1Char('|')).toStdString();
    }
    return profile->least ? std::to_string(*profile->least) + ".." + std::to_string(*profile->most)
                          : typeLabel(declared.typeTag);
}

} // namespace

std::string optionText(const Declaration& declared, const Points::ParameterProfile* profile)
{
    std::string label = labelOf(declared, profile);
    if (profile != nullptr && profile->role == Points::Role::Kind) {
        return label;
    }
    return declared.defaultValue.isValid()
        ? label + ", default " + plainText(declared.defaultValue).toStdString()
        : label + ", required";
}

std::string examplesText(const QString& command, const Points::CommandProfile& profile)
{
    QString text;
    for (const QString& example : profile.examples) {
        text += QStringLiteral("  driver-host %1 %2\n").arg(command, example);
    }
    return text.isEmpty() ? std::string() : "Examples:\n" + text.toStdString() + '\n';
}
