#include <plugin_management/parameter_check.h>

#include <runtime/engine/map_lookup.h>
#include <utilities/utilities.h>

#include <array>
#include <cmath>
#include <cstring>

namespace {

constexpr uint largestUInt16 = 0xFFFF;

bool parseUInt16(const QString& text, uint& number)
{
    const QString digits = text.trimmed();
    const bool hexadecimal = digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    bool ok = false;
    const qlonglong parsed =
        hexadecimal ? digits.mid(2).toLongLong(&ok, 16) : digits.toLongLong(&ok, 10);
    number = uint(parsed);
    return ok && parsed >= 0 && parsed <= largestUInt16;
}

bool readNumber(const QVariant& value, uint& number)
{
    const double real = value.toDouble();
    const bool whole = real >= 0 && real <= largestUInt16 && std::floor(real) == real;
    number = whole ? uint(real) : 0;
    return whole;
}

bool isNumber(int type)
{
    switch (type) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::UChar:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

bool checkUInt16(QVariant& value)
{
    uint number = 0;
    const int type = value.userType();
    const bool fits = type == QMetaType::QString ? parseUInt16(value.toString(), number)
                                                 : isNumber(type) && readNumber(value, number);
    if (fits) {
        value = number;
    }
    return fits;
}

// Tags are four letters, so that this is a comparison of one word.
bool isTag(const QString& typeTag, const char16_t (&tag)[5])
{
    constexpr std::size_t size = 4;
    return typeTag.size() == size
        && std::memcmp(typeTag.constData(), tag, size * sizeof(QChar)) == 0;
}

// The common case, and the one that costs no copy of the map: the value has the tag's type already.
bool fitsAsItIs(const QString& typeTag, const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::Int: // as unsigned numbers negative ones are out of the range as well
    case QMetaType::UInt:
        return *static_cast<const uint*>(value.constData()) <= largestUInt16
            && isTag(typeTag, u"ui16");
    case QMetaType::QString:
        return isTag(typeTag, u"strg");
    default:
        return false;
    }
}

bool checkBool(QVariant& value)
{
    const QString text = value.toString().trimmed().toLower();
    const bool yes = text == QLatin1String("true") || text == QLatin1String("1");
    const bool no = text == QLatin1String("false") || text == QLatin1String("0");
    if (yes || no) {
        value = yes;
    }
    return yes || no;
}

bool checkText(QVariant& value)
{
    const int type = value.userType();
    const bool fits = type == QMetaType::QString || type == QMetaType::Bool || isNumber(type);
    if (fits) {
        value = value.toString();
    }
    return fits;
}

bool checkList(QVariant& value) { return value.userType() == QMetaType::QVariantList; }

bool checkMap(QVariant& value) { return value.userType() == QMetaType::QVariantMap; }

struct TagRule
{
    const char* tag;
    const char* wanted;
    bool (*check)(QVariant& value);
};

constexpr std::array<TagRule, 5> tagRules{{
    {"ui16", "a number 0 to 65535", checkUInt16},
    {"bool", "true or false", checkBool},
    {"strg", "a text", checkText},
    {"varL", "a list", checkList},
    {"varM", "a map", checkMap},
}};

QString printable(const QVariant& value)
{
    const QString key;
    const QString text = convVariantMapToString({{key, value}});
    return text.mid(5, text.size() - 6).remove(QLatin1Char('"')); // the map's {"":  and } cut off
}

} // namespace

bool checkValue(const QString& typeTag, QVariant& value, QString* wanted)
{
    for (const TagRule& rule : tagRules) {
        if (typeTag == QLatin1String(rule.tag)) {
            if (wanted != nullptr) {
                *wanted = QLatin1String(rule.wanted);
            }
            return rule.check(value);
        }
    }
    return true;
}

bool checkParameters(const QList<Declaration>& declarations, ParameterMap& parameters,
                     QString* error)
{
    for (const Declaration& declared : declarations) {
        const QVariant* given = findValue(parameters, declared.name);
        if (given == nullptr) {
            if (declared.defaultValue.isValid()) {
                parameters.insert(declared.name, declared.defaultValue);
            }
            continue;
        }
        if (fitsAsItIs(declared.typeTag, *given)) {
            continue;
        }
        QString wanted;
        QVariant value = *given;
        if (!checkValue(declared.typeTag, value, &wanted)) {
            if (error != nullptr) {
                *error = QStringLiteral("parameter '%1': '%2' is not %3")
                             .arg(declared.name, printable(*given), wanted);
            }
            return false;
        }
        if (value != *given || value.userType() != given->userType()) {
            parameters.insert(declared.name, value);
        }
    }
    return true;
}
