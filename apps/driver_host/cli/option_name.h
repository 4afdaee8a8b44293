#pragma once

#include <QString>

/// A parameter's name as an option is usually written: "registerType" is "register-type".
inline QString kebabCase(const QString& name)
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
