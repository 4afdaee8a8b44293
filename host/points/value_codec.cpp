#include <points/value_codec.h>

#include <points/byte_order.h>
#include <points/integers.h>

#include <QLocale>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace Points {

namespace {

using Kind = DataType::Kind;

constexpr int scaledDigits = 15; // what a double holds of any decimal number
constexpr double longWhole = 1e15;
constexpr double smallFraction = 1e-5;

Encoded refused(const QString& wanted) { return {{}, wanted}; }

double shortestDouble(float number)
{
    const bool isDenormal = std::abs(number) < std::numeric_limits<float>::min();
    for (int digits = isDenormal ? 1 : std::numeric_limits<float>::digits10;
         digits < std::numeric_limits<float>::max_digits10; ++digits) {
        const double candidate = QString::number(double(number), 'g', digits).toDouble();
        if (float(candidate) == number) {
            return candidate;
        }
    }
    return QString::number(double(number), 'g', std::numeric_limits<float>::max_digits10)
        .toDouble();
}

template <typename Float, typename Bits>
Float floatOf(quint64 bits)
{
    const auto narrow = Bits(bits);
    Float number = 0;
    static_assert(sizeof(Float) == sizeof(Bits));
    std::memcpy(&number, &narrow, sizeof(number));
    return number;
}

template <typename Bits, typename Float>
quint64 bitsOf(Float number)
{
    Bits bits = 0;
    static_assert(sizeof(Float) == sizeof(Bits));
    std::memcpy(&bits, &number, sizeof(bits));
    return bits;
}

double float32Of(quint64 bits)
{
    const auto number = floatOf<float, quint32>(bits);
    return std::isfinite(number) && number != 0 ? shortestDouble(number) : double(number);
}

QVariant scaled(const QVariant& value, const ValueFormat& format)
{
    if (!format.isScaled()) {
        return value;
    }
    const double number = value.toDouble() * format.scale + format.offset;
    return std::isfinite(number) ? QString::number(number, 'g', scaledDigits).toDouble() : number;
}

Decoded bcd(quint64 bits, int digits)
{
    qlonglong number = 0;
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        const auto digit = int(bits >> shift & 0xF);
        if (digit > 9) {
            return {{},
                    QStringLiteral("0x%1 holds no decimal digits")
                        .arg(bits, digits, 16, QLatin1Char('0'))};
        }
        number = 10 * number + digit;
    }
    return {number, {}};
}

Decoded decodeBits(quint64 bits, const DataType& type)
{
    switch (type.kind) {
    case Kind::Bool:
        return {bits != 0, {}};
    case Kind::Bit:
        return {(bits >> type.size & 1) != 0, {}};
    case Kind::Float32:
        return {float32Of(bits), {}};
    case Kind::Float64:
        return {floatOf<double, quint64>(bits), {}};
    case Kind::Bcd16:
        return bcd(bits, 4);
    case Kind::Bcd32:
        return bcd(bits, 8);
    default:
        return {integerOf(bits, type.kind), {}};
    }
}

QString textOf(const QByteArray& bytes, int size)
{
    const QByteArray text(bytes.left(size).constData()); // up to a byte 0
    const QString utf8 = QString::fromUtf8(text);
    return utf8.contains(QChar::ReplacementCharacter) ? QString::fromLatin1(text) : utf8;
}

Encoded encodeText(const QString& text, const ValueFormat& format)
{
    const QByteArray bytes = text.toUtf8();
    if (bytes.size() > format.type.size || bytes.contains('\0')) {
        return refused(QStringLiteral("a text of %1 bytes at most").arg(format.type.size));
    }
    const int padded = 2 * wordCount(format.type);
    return {wordsOf(bytes + QByteArray(padded - bytes.size(), '\0'), format.order), {}};
}

Encoded encodeState(const QString& text, const ValueFormat& format)
{
    const auto state = stateFrom(text);
    return state ? Encoded{wordsOf(*state ? 1 : 0, 1, format.order), {}}
                 : refused(QStringLiteral("on, off, true, false, 1 or 0"));
}

// Words that make no number in a double's own reading, such as "infinity", are left out.
std::optional<double> realFrom(const QString& text)
{
    static const std::array<std::pair<const char*, double>, 4> words{{
        {"nan", std::numeric_limits<double>::quiet_NaN()},
        {"inf", std::numeric_limits<double>::infinity()},
        {"+inf", std::numeric_limits<double>::infinity()},
        {"-inf", -std::numeric_limits<double>::infinity()},
    }};
    for (const auto& [word, value] : words) {
        if (text.compare(QLatin1String(word), Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return finiteFrom(text);
}

bool isLostAsFloat(double number)
{
    const auto narrow = float(number);
    return std::isfinite(number) && (!std::isfinite(narrow) || (narrow == 0 && number != 0));
}

Encoded encodeFloat(const QString& text, const ValueFormat& format)
{
    const bool narrow = format.type.kind == Kind::Float32;
    const auto given = realFrom(text);
    const double number = (given.value_or(0) - format.offset) / format.scale;
    const bool lost =
        given && std::isfinite(*given) && (narrow ? isLostAsFloat(number) : !std::isfinite(number));
    if (!given || lost) {
        const QString largest = format.isScaled()
            ? QString()
            : QLatin1String(narrow ? " between -3.4e38 and 3.4e38"
                                   : " between -1.7e308 and 1.7e308");
        return refused(
            QStringLiteral("a number%1 that a %2 holds").arg(largest, dataTypeName(format.type)));
    }
    const quint64 bits = narrow ? bitsOf<quint32>(float(number)) : bitsOf<quint64>(number);
    return {wordsOf(bits, wordCount(format.type), format.order), {}};
}

quint64 bcdBits(quint64 number)
{
    quint64 bits = 0;
    for (int shift = 0; number > 0; shift += 4, number /= 10) {
        bits |= number % 10 << shift;
    }
    return bits;
}

QString wantedInteger(const ValueFormat& format)
{
    const QString range = integerRangeText(format.type.kind);
    if (!format.isScaled()) {
        return QStringLiteral("a whole number %1 (%2)").arg(range, dataTypeName(format.type));
    }
    const QString offset =
        format.offset != 0 ? QStringLiteral(" plus %1").arg(valueText(format.offset)) : QString();
    return QStringLiteral("a multiple of %1%2 whose number is %3 (%4)")
        .arg(valueText(format.scale), offset, range, dataTypeName(format.type));
}

Encoded encodeInteger(const QString& text, const ValueFormat& format)
{
    const auto bits = format.isScaled()
        ? scaledIntegerFrom(text, format.type.kind, format.scale, format.offset)
        : integerFrom(text, format.type.kind);
    if (!bits) {
        return refused(wantedInteger(format));
    }
    const bool isBcd = format.type.kind == Kind::Bcd16 || format.type.kind == Kind::Bcd32;
    return {wordsOf(isBcd ? bcdBits(*bits) : *bits, wordCount(format.type), format.order), {}};
}

QString realText(double number)
{
    if (std::isnan(number)) {
        return QStringLiteral("NaN");
    }
    if (number == 0 && std::signbit(number)) {
        return QStringLiteral("-0");
    }
    const double size = std::abs(number);
    const bool plain = number == 0 || (size >= smallFraction && size < longWhole);
    return QString::number(number, plain ? 'f' : 'g', QLocale::FloatingPointShortest);
}

} // namespace

Decoded decode(const Words& words, const ValueFormat& format)
{
    if (format.type.kind == Kind::String) {
        return {textOf(bytesOf(words, format.order), format.type.size), {}};
    }
    Decoded decoded = decodeBits(numberOf(words, format.order), format.type);
    if (decoded.value.isValid() && isNumber(format.type)) {
        decoded.value = scaled(decoded.value, format);
    }
    return decoded;
}

Encoded encode(const QString& text, const ValueFormat& format)
{
    switch (format.type.kind) {
    case Kind::Bool:
        return encodeState(text, format);
    case Kind::Bit:
        return refused(QStringLiteral("possible: a bit cannot be written alone, write its word"));
    case Kind::String:
        return encodeText(text, format);
    case Kind::Float32:
    case Kind::Float64:
        return encodeFloat(text.trimmed(), format);
    default:
        return encodeInteger(text.trimmed(), format);
    }
}

QString valueText(const QVariant& value)
{
    return value.userType() == QMetaType::Double ? realText(value.toDouble()) : value.toString();
}

std::optional<bool> stateFrom(const QString& text)
{
    const QString state = text.trimmed().toLower();
    if (state == QLatin1String("on") || state == QLatin1String("true")
        || state == QLatin1String("1")) {
        return true;
    }
    const bool isOff = state == QLatin1String("off") || state == QLatin1String("false")
        || state == QLatin1String("0");
    return isOff ? std::optional(false) : std::nullopt;
}

} // namespace Points
