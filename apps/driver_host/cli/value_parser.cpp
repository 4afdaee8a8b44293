#include "cli/value_parser.h"

#include <plugin_management/parameter_check.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace {

// The type that every driver converts from, where it holds the number.
QVariant numberVariant(qint64 number)
{
    const bool fits =
        number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
    return fits ? QVariant(int(number)) : QVariant(number);
}

QVariantList listVariant(const QJsonArray& array)
{
    QVariantList list;
    for (const QJsonValue& item : array) {
        list.append(jsonVariant(item));
    }
    return list;
}

QVariantMap mapVariant(const QJsonObject& object)
{
    QVariantMap map;
    for (auto it = object.begin(); it != object.end(); ++it) {
        map.insert(it.key(), jsonVariant(it.value()));
    }
    return map;
}

bool readNumbers(const QString& text, QVariantList& numbers)
{
    for (const QString& item : text.split(QLatin1Char(','))) {
        numbers.append(readNumber(item));
    }
    return std::all_of(numbers.cbegin(), numbers.cend(), [](const auto& n) { return n.isValid(); });
}

bool readJson(const QString& text, QJsonDocument& document)
{
    document = QJsonDocument::fromJson(text.toUtf8());
    return !document.isNull();
}

bool isBracketed(const QString& text)
{
    return text.startsWith(QLatin1Char('[')) && text.endsWith(QLatin1Char(']'));
}

QVariant parseBracketed(const QString& text)
{
    QVariantList numbers;
    if (readNumbers(text.mid(1, text.size() - 2), numbers)) {
        return numbers;
    }
    QJsonDocument document;
    return readJson(text, document) ? QVariant(listVariant(document.array())) : QVariant(text);
}

QVariant parseAny(const QString& given)
{
    const QString text = given.trimmed();
    if (isBracketed(text)) {
        return parseBracketed(text);
    }
    QVariantList numbers;
    if (!readNumbers(text, numbers)) {
        return given;
    }
    return numbers.size() == 1 ? numbers.first() : QVariant(numbers);
}

QVariant parseList(const QString& text)
{
    const QVariant value = parseAny(text);
    return value.userType() == QMetaType::QVariantList ? value : QVariant(QVariantList{value});
}

bool parseMap(const QString& text, QVariant& value)
{
    QJsonDocument document;
    const bool isMap = readJson(text, document) && document.isObject();
    value = mapVariant(document.object());
    return isMap;
}

} // namespace

bool parseValue(const QString& typeTag, const QString& text, QVariant& value, Misfit* misfit)
{
    if (typeTag == QLatin1String("varM")) {
        if (!parseMap(text, value)) {
            *misfit = {{}, text, QStringLiteral("a JSON object")};
            return false;
        }
    } else if (typeTag == QLatin1String("vart")) {
        value = parseAny(text);
    } else if (typeTag == QLatin1String("varL")) {
        value = parseList(text);
    } else {
        value = text;
    }
    return checkValue(typeTag, value, misfit);
}

QVariant jsonVariant(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Array:
        return listVariant(value.toArray());
    case QJsonValue::Object:
        return mapVariant(value.toObject());
    case QJsonValue::Null:
        return {};
    default:
        break;
    }
    const QVariant variant = value.toVariant();
    return variant.userType() == QMetaType::LongLong ? numberVariant(variant.toLongLong())
                                                     : variant;
}
