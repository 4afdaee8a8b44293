#pragma once

#include <points/points_global.h>

#include <QString>
#include <QStringList>

#include <optional>

// Values and functions without state: use them on any thread.

namespace Points {

/// What a value is made of.
struct DataType
{
    enum class Kind {
        Bool, ///< a bit; of a word: not 0
        Bit, ///< one bit of a word; read only
        Int16,
        UInt16,
        Int32,
        UInt32,
        Int64,
        UInt64,
        Float32, ///< IEEE 754, as is float64
        Float64,
        Bcd16, ///< four decimal digits, four bits each
        Bcd32, ///< eight
        String, ///< two bytes a word, UTF-8 or else Latin-1, ended by a byte 0 when it is shorter
    };

    Kind kind = Kind::UInt16;
    int size = 0; ///< of a String its bytes, 1 to longestString; of a Bit its number, 0 to 15

    bool operator==(const DataType& other) const
    {
        return kind == other.kind && size == other.size;
    }
};

constexpr int longestString = 250; ///< bytes

/// The type with this name: bool, int16, uint16, int32, uint32, int64, uint64, float32, float64,
/// bcd16, bcd32, bit0 to bit15, string1 to string250; bit(3) and string(8) are the same as bit3
/// and string8. None for any other name.
HOST_POINTS_EXPORT std::optional<DataType> dataTypeFrom(const QString& name);
/// Its name.
HOST_POINTS_EXPORT QString dataTypeName(const DataType& type);
/// All names, those with a number as "bitN" and "stringN".
HOST_POINTS_EXPORT const QStringList& dataTypeNames();

/// How many 16-bit words hold one value, 1 or more.
HOST_POINTS_EXPORT int wordCount(const DataType& type);
/// True where scale and offset mean something.
HOST_POINTS_EXPORT bool isNumber(const DataType& type);

/// In which order the bytes of a value arrive. A is the most significant of four; of eight bytes
/// CDAB turns the words around, BADC the bytes in each word, DCBA both. So it is for one word.
enum class Order { ABCD, CDAB, BADC, DCBA };

HOST_POINTS_EXPORT std::optional<Order> orderFrom(const QString& name);
HOST_POINTS_EXPORT const QStringList& orderNames();
/// False for a type whose words cannot be turned around: a string takes ABCD and BADC.
HOST_POINTS_EXPORT bool fits(Order order, const DataType& type);

} // namespace Points
