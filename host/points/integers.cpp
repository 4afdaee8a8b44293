#include <points/integers.h>

#include <QRegularExpression>

#include <array>
#include <cmath>
#include <limits>

namespace Points {

namespace {

using Kind = DataType::Kind;

constexpr double exactWhole = 9007199254740992; // 2^53: up to there a double tells wholes apart
constexpr double stepTolerance = 1e-6; // of a step, against the rounding of decimal fractions

struct Range
{
    Kind kind;
    qint64 least;
    quint64 most;
};

constexpr std::array<Range, 8> ranges{{
    {Kind::Int16, std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()},
    {Kind::UInt16, 0, std::numeric_limits<quint16>::max()},
    {Kind::Int32, std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max()},
    {Kind::UInt32, 0, std::numeric_limits<quint32>::max()},
    {Kind::Int64, std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max()},
    {Kind::UInt64, 0, std::numeric_limits<quint64>::max()},
    {Kind::Bcd16, 0, 9999},
    {Kind::Bcd32, 0, 99999999},
}};

const Range& rangeOf(Kind kind)
{
    const auto* range = ranges.begin();
    while (range->kind != kind) {
        ++range;
    }
    return *range;
}

std::optional<quint64> inRange(bool isNegative, quint64 size, const Range& range)
{
    const quint64 mostBelow = quint64(0) - quint64(range.least);
    if (isNegative && size > 0) {
        return size <= mostBelow ? std::optional(quint64(0) - size) : std::nullopt;
    }
    return size <= range.most ? std::optional(size) : std::nullopt;
}

// Whole numbers of doubles, such as those of "1e3".
std::optional<quint64> wholeOf(double number, const Range& range)
{
    const bool isWhole = std::abs(number) <= exactWhole && std::floor(number) == number;
    return isWhole ? inRange(number < 0, quint64(std::abs(number)), range) : std::nullopt;
}

bool isHexadecimal(const QString& digits)
{
    return digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
}

QString withoutSign(const QString& text)
{
    const bool isSigned = text.startsWith(QLatin1Char('-')) || text.startsWith(QLatin1Char('+'));
    return isSigned ? text.mid(1) : text;
}

} // namespace

QVariant integerOf(quint64 bits, Kind kind)
{
    switch (kind) {
    case Kind::Int16:
        return qlonglong(qint16(bits));
    case Kind::Int32:
        return qlonglong(qint32(bits));
    case Kind::UInt64:
        return qulonglong(bits);
    default:
        return qlonglong(bits);
    }
}

std::optional<double> finiteFrom(const QString& text)
{
    static const QRegularExpression form(
        QStringLiteral("^[+-]?(0x[0-9a-f]{1,16}|([0-9]+\\.?[0-9]*|\\.[0-9]+)(e[+-]?[0-9]+)?)$"),
        QRegularExpression::CaseInsensitiveOption);
    if (!form.match(text).hasMatch()) {
        return std::nullopt;
    }
    const QString digits = withoutSign(text);
    const double size =
        isHexadecimal(digits) ? double(digits.toULongLong(nullptr, 16)) : digits.toDouble();
    const double number = text.startsWith(QLatin1Char('-')) ? -size : size;
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

std::optional<quint64> integerFrom(const QString& text, Kind kind)
{
    const auto real = finiteFrom(text);
    if (!real) {
        return std::nullopt;
    }
    bool isExact = false;
    const QString digits = withoutSign(text);
    const quint64 size = digits.toULongLong(&isExact, isHexadecimal(digits) ? 16 : 10);
    return isExact ? inRange(text.startsWith(QLatin1Char('-')), size, rangeOf(kind))
                   : wholeOf(*real, rangeOf(kind));
}

std::optional<quint64> scaledIntegerFrom(const QString& text, Kind kind, double scale,
                                         double offset)
{
    const auto real = finiteFrom(text);
    const double number = (real.value_or(0) - offset) / scale;
    const double whole = std::nearbyint(number);
    return real && std::abs(number - whole) <= stepTolerance ? wholeOf(whole, rangeOf(kind))
                                                             : std::nullopt;
}

QString integerRangeText(Kind kind)
{
    const Range& range = rangeOf(kind);
    return QStringLiteral("%1 to %2").arg(range.least).arg(range.most);
}

} // namespace Points
