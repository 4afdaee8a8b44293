#pragma once

#include <QByteArray>
#include <QVariantList>

/// What stands where in a Modbus TCP frame, as devices see it that only answer this module.
namespace Frames {

constexpr int headerSize = 6; ///< what the length field does not count
constexpr int lengthOffset = 5; ///< its low byte
constexpr int unitOffset = 6;
constexpr int functionOffset = 7;
constexpr int startOffset = 8;
constexpr int dataOffset = 9; ///< of a read's reply
constexpr int quantityOffset = 10;
constexpr int echoSize = 12;
constexpr quint8 exceptionBit = 0x80;
constexpr char illegalDataAddress = 2;

inline quint16 wordIn(const QByteArray& bytes, int offset)
{
    return static_cast<quint16>(static_cast<uchar>(bytes.at(offset)) << 8
                                | static_cast<uchar>(bytes.at(offset + 1)));
}

/// The reply to \a request with this function code, and \a body behind it.
inline QByteArray replyTo(const QByteArray& request, quint8 function, const QByteArray& body)
{
    QByteArray reply = request.left(functionOffset) + static_cast<char>(function) + body;
    reply[lengthOffset - 1] = 0;
    reply[lengthOffset] = static_cast<char>(reply.size() - headerSize);
    return reply;
}

/// The values of a reply as the module hands them out: words, and of the last byte of bits only the
/// last one that was asked for.
inline QVariantList handedOut(quint8 function, quint16 quantity, QByteArray data)
{
    if (function <= 2 && !data.isEmpty()) {
        char& last = data.data()[data.size() - 1];
        last = static_cast<char>(last & (1 << (quantity - 1) % 8));
    }
    QVariantList values;
    for (int i = 0; i < data.size(); i += 2) {
        values << (i + 1 < data.size() ? int{wordIn(data, i)} : static_cast<uchar>(data.at(i)));
    }
    return values;
}

} // namespace Frames
