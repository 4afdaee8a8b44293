#include "value_parser.h"

#include <plugin_management/parameter_check.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <limits>

namespace {

bool readNumber(const QString& text, qint64& number)
{
    const QString digits = text.trimmed();
    const bool hexadecimal = digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    bool ok = false;
    number = hexadecimal ? digits.mid(2).toLongLong(&ok, 16) : digits.toLongLong(&ok, 10);
    return ok;
}

// Numbers that an int holds travel as ints, the type that every driver converts from.
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
        qint64 number = 0;
        if (!readNumber(item, number)) {
            return false;
        }
        numbers.append(numberVariant(number));
    }
    return true;
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

bool parseMap(const QString& text, QVariant& value, QString* wanted)
{
    QJsonDocument document;
    if (!readJson(text, document) || !document.isObject()) {
        *wanted = QStringLiteral("a JSON object");
        return false;
    }
    value = mapVariant(document.object());
    return true;
}

} // namespace

bool parseValue(const QString& typeTag, const QString& text, QVariant& value, QString* wanted)
{
    if (typeTag == QLatin1String("varM")) {
        return parseMap(text, value, wanted);
    }
    if (typeTag == QLatin1String("vart")) {
        value = parseAny(text);
    } else if (typeTag == QLatin1String("varL")) {
        value = parseList(text);
    } else {
        value = text;
    }
    return checkValue(typeTag, value, wanted);
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

bool parseCount(const QString& text, CountRange range, int& number, QString* wanted)
{
    qint64 parsed = 0;
    if (!readNumber(text, parsed) || parsed < range.least || parsed > range.most) {
        *wanted = QStringLiteral("a number %1 to %2").arg(range.least).arg(range.most);
        return false;
    }
    number = int(parsed);
    return true;
}
