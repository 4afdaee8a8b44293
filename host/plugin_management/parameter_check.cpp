#include <plugin_management/parameter_check.h>

#include <runtime/engine/map_lookup.h>
#include <utilities/utilities.h>

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

constexpr uint largestUInt16 = 0xFFFF;
constexpr double leastWhole = std::numeric_limits<qint32>::min();
constexpr double mostWhole = std::numeric_limits<quint32>::max();

QString wholeNumber()
{
    return QStringLiteral("a whole number %1 to %2")
        .arg(std::numeric_limits<qint32>::min())
        .arg(std::numeric_limits<quint32>::max());
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

// An int where one holds it, the type that every module converts from. What a double does not hold
// exactly is beyond 32 bits anyway.
bool takeWhole(QVariant& number)
{
    const double real = number.toDouble();
    const bool whole = real >= leastWhole && real <= mostWhole && std::floor(real) == real;
    if (whole) {
        const bool isInt = real <= std::numeric_limits<int>::max();
        number = isInt ? QVariant(int(real)) : QVariant(uint(real));
    }
    return whole;
}

double hexadecimalValue(const QString& digits)
{
    bool fits = false;
    const auto value = double(digits.toULongLong(&fits, 16));
    return fits ? value : std::numeric_limits<double>::infinity();
}

// A number or the text of one, as far as it lies in the range.
bool takeNumber(QVariant& value, int least, int most)
{
    QVariant number = value.userType() == QMetaType::QString ? readNumber(value.toString()) : value;
    const bool fits = isNumber(number.userType()) && takeWhole(number)
        && number.toLongLong() >= least && number.toLongLong() <= most;
    if (fits) {
        value = number;
    }
    return fits;
}

bool checkUInt16(QVariant& value)
{
    const bool fits = takeNumber(value, 0, largestUInt16);
    if (fits) {
        value = value.toUInt();
    }
    return fits;
}

bool isTag(const QString& typeTag, const char16_t (&tag)[5])
{
    return typeTag.size() == 4 && std::memcmp(typeTag.constData(), tag, 4 * sizeof(QChar)) == 0;
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

// The text of a number that is not whole could be another one than the user wrote.
bool checkText(QVariant& value)
{
    const int type = value.userType();
    const bool fits = type == QMetaType::QString || type == QMetaType::Bool
        || (isNumber(type) && takeWhole(value));
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

bool checkTag(const QString& typeTag, QVariant& value, Misfit& misfit)
{
    for (const TagRule& rule : tagRules) {
        if (typeTag == QLatin1String(rule.tag)) {
            const bool fits = rule.check(value);
            misfit = fits ? Misfit() : Misfit{{}, printable(value), QLatin1String(rule.wanted)};
            return fits;
        }
    }
    return true;
}

// Whether texts are looked at as well.
enum class Texts { MayBeNumbers, AreTexts };

// Conversions keep the last 32 bits of a text of digits, and find no number in any other text.
bool isBeyond32Bits(const QString& text)
{
    bool isNumber = false;
    const auto number = text.toLongLong(&isNumber);
    return isNumber
        && (number < std::numeric_limits<qint32>::min()
            || number > std::numeric_limits<quint32>::max());
}

bool isInt(const QVariant& value)
{
    return value.userType() == QMetaType::Int || value.userType() == QMetaType::UInt;
}

bool checkScalar(QVariant& value, Texts texts)
{
    if (value.userType() == QMetaType::QString) {
        return texts == Texts::AreTexts || !isBeyond32Bits(value.toString());
    }
    return isInt(value) || !isNumber(value.userType()) || takeWhole(value);
}

bool checkNumbers(QVariant& value, Texts texts, Misfit& misfit);

bool checkElements(QVariant& value, Texts texts, Misfit& misfit)
{
    QVariantList list = value.toList();
    if (std::all_of(list.cbegin(), list.cend(), isInt)) {
        return true; // without a copy of it
    }
    for (int i = 0; i < list.size(); ++i) {
        if (!checkNumbers(list[i], texts, misfit)) {
            misfit.place.prepend(QStringLiteral("[%1]").arg(i));
            return false;
        }
    }
    value = list;
    return true;
}

bool checkEntries(QVariant& value, Texts texts, Misfit& misfit)
{
    ParameterMap map = value.toMap();
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (!checkNumbers(it.value(), texts, misfit)) {
            misfit.place.prepend(QLatin1Char('.') + it.key());
            return false;
        }
    }
    value = map;
    return true;
}

bool checkNumbers(QVariant& value, Texts texts, Misfit& misfit)
{
    switch (value.userType()) {
    case QMetaType::QVariantList:
        return checkElements(value, texts, misfit);
    case QMetaType::QVariantMap:
        return checkEntries(value, texts, misfit);
    default:
        break;
    }
    const bool fits = checkScalar(value, texts);
    misfit = fits ? Misfit() : Misfit{{}, printable(value), wholeNumber()};
    return fits;
}

// Quick where nothing has to be looked into: most values of an order are such.
bool isSettled(const QVariant& value)
{
    return isInt(value) || value.userType() == QMetaType::QString
        || value.userType() == QMetaType::Bool;
}

QString misfitText(const QString& name, const Misfit& misfit)
{
    return QStringLiteral("parameter '%1%2': '%3' is not %4")
        .arg(name, misfit.place, misfit.given, misfit.wanted);
}

bool checkDeclared(const Declaration& declared, const QVariant& given, ParameterMap& parameters,
                   Misfit& misfit)
{
    if (fitsAsItIs(declared.typeTag, given)) {
        return true;
    }
    QVariant value = given;
    if (!checkValue(declared.typeTag, value, &misfit)) {
        return false;
    }
    if (value != given || value.userType() != given.userType()) {
        parameters.insert(declared.name, value);
    }
    return true;
}

bool checkUndeclared(ParameterMap& parameters, QString& name, Misfit& misfit)
{
    const auto begin = std::as_const(parameters).begin();
    const auto end = std::as_const(parameters).end();
    if (std::all_of(begin, end, isSettled)) {
        return true;
    }
    for (auto it = parameters.begin(); it != parameters.end(); ++it) {
        if (!checkNumbers(it.value(), Texts::AreTexts, misfit)) {
            name = it.key();
            return false;
        }
    }
    return true;
}

bool checkInterval(ParameterMap& parameters, QString& name, Misfit& misfit)
{
    name = QStringLiteral("recurrentInterval");
    const QVariant* given = findValue(parameters, name);
    if (given == nullptr) {
        return true;
    }
    QVariant value = *given;
    const bool fits = takeNumber(value, 1, longestIntervalMs);
    if (!fits) {
        misfit = {{},
                  printable(value),
                  QStringLiteral("a number of milliseconds, 1 to %1").arg(longestIntervalMs)};
    } else if (value.userType() != given->userType()) {
        parameters.insert(name, value);
    }
    return fits;
}

const Declaration* findDeclaration(const QList<Declaration>& declarations, const QString& name)
{
    const auto it = std::find_if(declarations.cbegin(), declarations.cend(),
                                 [&](const Declaration& d) { return isSameText(d.name, name); });
    return it != declarations.cend() ? &*it : nullptr;
}

// Most orders have all that is declared, in its own types, and little else. That is seen in one
// walk, which spares an order 250 instructions.
bool areRightAsTheyAre(const QList<Declaration>& declarations, const ParameterMap& parameters)
{
    int found = 0;
    const auto isRight = [&](const QString& name, const QVariant& value) {
        const Declaration* declared = findDeclaration(declarations, name);
        found += declared != nullptr ? 1 : 0;
        return declared != nullptr ? fitsAsItIs(declared->typeTag, value) : isSettled(value);
    };
    const QString interval = QStringLiteral("recurrentInterval");
    for (auto it = parameters.cbegin(), end = parameters.cend(); it != end; ++it) {
        if (!isRight(it.key(), *it) || isSameText(it.key(), interval)) {
            return false;
        }
    }
    return found == declarations.size();
}

} // namespace

QVariant readNumber(const QString& text)
{
    // The form is checked first, as a double may also be read from words such as "inf".
    static const QRegularExpression form(
        QStringLiteral(
            "^([+-]?)(?:0x([0-9a-f]+)|(?:[0-9]+\\.?[0-9]*|\\.[0-9]+)(?:e[+-]?[0-9]+)?)$"),
        QRegularExpression::CaseInsensitiveOption);
    const QString trimmed = text.trimmed();
    const QRegularExpressionMatch match = form.match(trimmed);
    if (!match.hasMatch()) {
        return {};
    }
    const double sign = match.capturedRef(1) == QLatin1String("-") ? -1 : 1;
    const double real = match.capturedLength(2) > 0 ? sign * hexadecimalValue(match.captured(2))
                                                    : trimmed.toDouble();
    QVariant number = real;
    takeWhole(number);
    return number;
}

bool checkValue(const QString& typeTag, QVariant& value, Misfit* misfit)
{
    Misfit found;
    const Texts texts = typeTag == QLatin1String("strg") ? Texts::AreTexts : Texts::MayBeNumbers;
    const bool fits = checkTag(typeTag, value, found) && checkNumbers(value, texts, found);
    if (misfit != nullptr) {
        *misfit = found;
    }
    return fits;
}

bool checkParameters(const QList<Declaration>& declarations, ParameterMap& parameters,
                     QString* error)
{
    if (areRightAsTheyAre(declarations, parameters)) {
        return true;
    }
    Misfit misfit;
    QString name;
    bool fits = true;
    for (const Declaration& declared : declarations) {
        const QVariant* given = findValue(parameters, declared.name);
        if (given != nullptr && !checkDeclared(declared, *given, parameters, misfit)) {
            name = declared.name;
            fits = false;
            break;
        }
        if (given == nullptr && declared.defaultValue.isValid()) {
            parameters.insert(declared.name, declared.defaultValue);
        }
    }
    fits = fits && checkInterval(parameters, name, misfit)
        && checkUndeclared(parameters, name, misfit);
    if (!fits && error != nullptr) {
        *error = misfitText(name, misfit);
    }
    return fits;
}
