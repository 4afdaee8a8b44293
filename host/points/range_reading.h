#pragma once

#include <points/points_global.h>

#include <QVariant>
#include <QVector>

#include <optional>
#include <vector>

namespace Points {

/// Items of a table, one after the other.
struct Span
{
    int first = 0;
    int count = 0;

    int end() const { return first + count; }
    bool operator==(const Span& other) const
    {
        return first == other.first && count == other.count;
    }
};

/// How a table answers.
struct RangeForm
{
    int limit = 1; ///< items per request
    int granule = 1; ///< items that belong together and come from one reply, as a value's words do
    bool packedBits = false; ///< see RangeReading
    int size = 65536; ///< items of the table, as far as they can be addressed
};

/// The requests that read a range of a table, whatever its length, with as few as can be.
///
/// Words come one to a value. Packed bits come eight to a byte, the lowest first, and two bytes to
/// a value, the first one high; an odd last byte is a value of its own. Of the last byte only the
/// bit of the last item counts. A range of 8k+1 bits is whole all the same, so only such ones are
/// asked for: with items behind the range, or before it where the device has none behind it; and
/// where it has neither, in two requests that overlap, or, below nine bits, one by one.
///
/// A value, not shared: next(), then either take() or refuse(), until next() gives nothing.
class HOST_POINTS_EXPORT RangeReading
{
public:
    /// \a range must not be empty, and lie within the table.
    RangeReading(const RangeForm& form, Span range);

    /// The request to make now; none when all have been answered.
    std::optional<Span> next() const;
    /// The part of the range for which next() asks.
    Span part() const { return m_pieces[m_piece].span; }
    /// The values of the reply to next(). False when it does not hold what was asked for.
    bool take(const QVariantList& values);
    /// The device has none of what next() asked for. False when there is no other way to ask.
    bool refuse();
    /// What was read: words, or 0 and 1. Whole when next() gives nothing.
    const QVector<quint16>& items() const { return m_items; }
    /// Reads the same once more; what was refused is not asked for again.
    void restart();

private:
    // A part of the range, and the ways in which it can be asked for. The first one counts.
    struct Piece
    {
        Span span;
        std::vector<std::vector<Span>> ways;
    };

    void addPiece(Span span);
    void addBitPiece(Span span);
    const std::vector<Span>& way() const { return m_pieces[m_piece].ways.front(); }
    void store(const QVector<quint16>& items, int first);

    RangeForm m_form;
    Span m_range;
    std::vector<Piece> m_pieces;
    std::size_t m_piece = 0;
    std::size_t m_request = 0; // of the piece's way
    QVector<quint16> m_items;
};

} // namespace Points
