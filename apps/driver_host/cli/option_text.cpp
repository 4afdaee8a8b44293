#include "cli/option_text.h"

QString kebabCase(const QString& name)
{
    QString kebab;
    for (const QChar c : name) {
        if (c.isUpper() && !kebab.isEmpty()) {
            kebab += QLatin1Char('-');
        }
        kebab += c.toLower();
    }
    return kebab;
}

QString optionName(const QString& parameter) { return QLatin1String("--") + kebabCase(parameter); }

QString unfit(const QString& option, const QString& given, const QString& wanted)
{
    return QStringLiteral("%1: '%2' is not %3").arg(option, given, wanted);
}
