#include <common/number.h>

#include <CLI/CLI.hpp>
#include <plugin_management/parameter_check.h>

std::optional<int> parseNumber(const QString& text, NumberRange range)
{
    const QVariant number = readNumber(text);
    const bool fits = number.userType() == QMetaType::Int && number.toInt() >= range.least
        && number.toInt() <= range.most;
    return fits ? std::optional(number.toInt()) : std::nullopt;
}

QString notInRange(const QString& text, NumberRange range)
{
    return QStringLiteral("'%1' is not a number %2 to %3")
        .arg(text, QString::number(range.least), QString::number(range.most));
}

CLI::Validator numberIn(NumberRange range)
{
    // The parser's own conversion finds octal numbers, so that it is given plain decimal ones.
    const auto makePlain = [range](std::string& text) {
        const QString given = QString::fromStdString(text);
        const auto number = parseNumber(given, range);
        text = std::to_string(number.value_or(0));
        return number ? std::string() : notInRange(given, range).toStdString();
    };
    return {makePlain, std::string()};
}
