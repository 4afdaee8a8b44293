#include "profile/data_list.h"

#include <points/value_codec.h>

#include <QJsonArray>
#include <QJsonDocument>

bool splitData(const QString& given, QStringList& values, QString* misfit)
{
    const QString text = given.trimmed();
    const bool opens = text.startsWith(QLatin1Char('['));
    if (opens != text.endsWith(QLatin1Char(']'))) {
        *misfit = QStringLiteral("a list: a bracket is missing");
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (opens && document.isArray()) {
        const QVariantList list = document.array().toVariantList();
        for (const QVariant& value : list) {
            values.append(Points::valueText(value));
        }
    } else {
        values = (opens ? text.mid(1, text.size() - 2) : text).split(QLatin1Char(','));
    }
    return true;
}
