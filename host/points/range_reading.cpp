#include <points/range_reading.h>

#include <algorithm>

namespace Points {

namespace {

constexpr int byteBits = 8;
constexpr int largestWord = 0xFFFF;
constexpr int largestByte = 0xFF;

// The least 8k+1 that is not below it.
int wholeBits(int count) { return (count + byteBits - 2) / byteBits * byteBits + 1; }

std::vector<Span> oneByOne(Span span)
{
    std::vector<Span> singles;
    singles.reserve(std::size_t(span.count));
    for (int i = 0; i < span.count; ++i) {
        singles.push_back({span.first + i, 1});
    }
    return singles;
}

// Without an item beyond the span: 8k+1 bits from its begin, and the last nine.
std::vector<Span> within(Span span)
{
    if (span.count <= byteBits) {
        return oneByOne(span);
    }
    const int begin = wholeBits(span.count) - byteBits;
    return {{span.first, begin}, {span.end() - byteBits - 1, byteBits + 1}};
}

std::optional<QVector<quint16>> wordsFrom(const QVariantList& values, int most)
{
    QVector<quint16> words;
    for (const QVariant& value : values) {
        bool isNumber = false;
        const int number = value.toInt(&isNumber);
        if (!isNumber || number < 0 || number > most) {
            return std::nullopt;
        }
        words.append(quint16(number));
    }
    return words;
}

// The bytes of packed bits; none when there are not as many as there should be.
std::optional<QVector<quint16>> bytesFrom(const QVariantList& values, int count)
{
    const auto words = wordsFrom(values, largestWord);
    const bool isOdd = count % 2 != 0;
    if (!words || words->size() != (count + 1) / 2 || (isOdd && words->last() > largestByte)) {
        return std::nullopt;
    }
    QVector<quint16> bytes;
    for (int i = 0; i < count; ++i) {
        const quint16 word = words->at(i / 2);
        const bool isHigh = i % 2 == 0 && i + 1 < count;
        bytes.append(isHigh ? quint16(word >> byteBits) : quint16(word & largestByte));
    }
    return bytes;
}

std::optional<QVector<quint16>> bitsFrom(const QVariantList& values, int count)
{
    const auto bytes = bytesFrom(values, (count + byteBits - 1) / byteBits);
    if (!bytes) {
        return std::nullopt;
    }
    QVector<quint16> bits;
    for (int i = 0; i < count; ++i) {
        bits.append(bytes->at(i / byteBits) >> i % byteBits & 1);
    }
    return bits;
}

} // namespace

RangeReading::RangeReading(const RangeForm& form, Span range)
    : m_form(form), m_range(range), m_items(range.count)
{
    const int most = form.packedBits ? (form.limit - 1) / byteBits * byteBits + 1
                                     : form.limit / form.granule * form.granule;
    for (int first = range.first; first < range.end(); first += most) {
        addPiece({first, std::min(most, range.end() - first)});
    }
}

void RangeReading::addPiece(Span span)
{
    if (m_form.packedBits) {
        addBitPiece(span);
    } else {
        m_pieces.push_back({span, {{span}}});
    }
}

void RangeReading::addBitPiece(Span span)
{
    const int whole = wholeBits(span.count);
    Piece piece{span, {}};
    if (span.first + whole <= m_form.size) {
        piece.ways.push_back({{span.first, whole}});
    }
    if (whole > span.count && span.end() >= whole) {
        piece.ways.push_back({{span.end() - whole, whole}});
    }
    if (whole > span.count) {
        piece.ways.push_back(within(span));
    }
    m_pieces.push_back(piece);
}

std::optional<Span> RangeReading::next() const
{
    return m_piece < m_pieces.size() ? std::optional(way()[m_request]) : std::nullopt;
}

bool RangeReading::take(const QVariantList& values)
{
    const Span asked = way()[m_request];
    const auto items =
        m_form.packedBits ? bitsFrom(values, asked.count) : wordsFrom(values, largestWord);
    if (!items || items->size() != asked.count) {
        return false;
    }
    store(*items, asked.first);
    if (++m_request == way().size()) {
        m_request = 0;
        ++m_piece;
    }
    return true;
}

bool RangeReading::refuse()
{
    auto& ways = m_pieces[m_piece].ways;
    if (ways.size() == 1) {
        return false;
    }
    ways.erase(ways.begin());
    m_request = 0;
    return true;
}

void RangeReading::store(const QVector<quint16>& items, int first)
{
    for (int i = 0; i < items.size(); ++i) {
        const int place = first + i - m_range.first;
        if (place >= 0 && place < m_items.size()) {
            m_items[place] = items[i];
        }
    }
}

void RangeReading::restart()
{
    m_piece = 0;
    m_request = 0;
    m_items.fill(0);
}

} // namespace Points
