#include "output/value_text.h"

#include <common/terminal_text.h>
#include <plugin_management/types.h>
#include <points/value_codec.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <utilities/utilities.h>

#include <cmath>

namespace {

constexpr qlonglong largestWord = 0xFFFF;

bool isPrintable(char byte) { return byte >= 0x20 && byte < 0x7F; }

QString bytesText(const QByteArray& bytes)
{
    QString printable;
    for (const char byte : bytes) {
        printable += QLatin1Char(isPrintable(byte) ? byte : '.');
    }
    return QStringLiteral("%1  |%2|").arg(QString::fromLatin1(bytes.toHex(' ')), printable);
}

bool isWholeNumber(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

QString listText(const QVariantList& list)
{
    QStringList texts;
    for (const QVariant& item : list) {
        texts.append(plainText(item));
    }
    return texts.join(QLatin1String(", "));
}

QJsonArray jsonArray(const QVariantList& list)
{
    QJsonArray array;
    for (const QVariant& item : list) {
        array.append(jsonValue(item));
    }
    return array;
}

QJsonObject jsonObject(const ParameterMap& map)
{
    QJsonObject object;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        object.insert(it.key(), jsonValue(it.value()));
    }
    return object;
}

QStringList jsonTexts(const QVariantList& list)
{
    QStringList texts;
    for (const QVariant& item : list) {
        texts.append(jsonText(item));
    }
    return texts;
}

QString mapJsonText(const ParameterMap& map)
{
    QStringList texts;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        texts.append(compactJson(it.key()) + QLatin1Char(':') + jsonText(it.value()));
    }
    return QLatin1Char('{') + texts.join(QLatin1Char(',')) + QLatin1Char('}');
}

QString numberJsonText(double number)
{
    if (number == 0 && std::signbit(number)) {
        return QStringLiteral("-0.0"); // many read -0 as a whole number, which has no sign then
    }
    const QString text = Points::valueText(number);
    return std::isfinite(number) ? text : QLatin1Char('"') + text + QLatin1Char('"');
}

// Qt writes these as they are, and a terminal obeys some of them.
QString withoutUpperControls(QString json)
{
    for (int i = json.size() - 1; i >= 0; --i) {
        const ushort code = json.at(i).unicode();
        if (code >= 0x7F && code <= 0x9F) {
            json.replace(i, 1, QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0')));
        }
    }
    return json;
}

} // namespace

QString plainText(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QByteArray:
        return bytesText(value.toByteArray());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return listText(value.toList());
    case QMetaType::QVariantMap:
        return withoutControls(convVariantMapToString(value.toMap()));
    case QMetaType::Double:
        return Points::valueText(value);
    default:
        return withoutControls(value.toString());
    }
}

QString typedText(const QVariant& value, const QString& unit)
{
    if (value.userType() == QMetaType::Bool) {
        return QLatin1String(value.toBool() ? "on" : "off");
    }
    return unit.isEmpty() ? plainText(value)
                          : plainText(value) + QLatin1Char(' ') + withoutControls(unit);
}

QString wordText(const QVariant& value)
{
    const qlonglong number = value.toLongLong();
    const bool isWord = isWholeNumber(value) && number >= 0 && number <= largestWord;
    return isWord ? QStringLiteral("0x%1").arg(number, 4, 16, QLatin1Char('0')) : QString();
}

QJsonValue jsonValue(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toHex());
    case QMetaType::QVariantList:
        return jsonArray(value.toList());
    case QMetaType::QVariantMap:
        return jsonObject(value.toMap());
    default:
        return QJsonValue::fromVariant(value);
    }
}

QString compactJson(const QJsonValue& value)
{
    // A document holds an array or an object only, so a lone value borrows an array's brackets.
    const QByteArray json = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return withoutUpperControls(QString::fromUtf8(json.mid(1, json.size() - 2)));
}

QString jsonText(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantList:
        return QLatin1Char('[') + jsonTexts(value.toList()).join(QLatin1Char(','))
            + QLatin1Char(']');
    case QMetaType::QVariantMap:
        return mapJsonText(value.toMap());
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toString();
    case QMetaType::Double:
        return numberJsonText(value.toDouble());
    default:
        return compactJson(jsonValue(value));
    }
}

QString fieldText(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toHex());
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
        return jsonText(value);
    default:
        return Points::valueText(value);
    }
}
