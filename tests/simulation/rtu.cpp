#include "rtu.h"

namespace {

constexpr int headerSize = 6; // what the length field does not count
constexpr int lengthOffset = 5;
constexpr int crcSize = 2;

QByteArray crcOf(const QByteArray& bytes)
{
    unsigned rest = 0xFFFF;
    for (const char byte : bytes) {
        rest ^= static_cast<uchar>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            rest = rest >> 1 ^ ((rest & 1) != 0 ? 0xA001U : 0U);
        }
    }
    return QByteArray(1, static_cast<char>(rest)) + static_cast<char>(rest >> 8);
}

int frameSize(const QByteArray& frames)
{
    const bool isLong = frames.size() <= headerSize || frames.at(lengthOffset - 1) != 0;
    const int size = isLong ? 0 : headerSize + static_cast<uchar>(frames.at(lengthOffset));
    return size > headerSize + 1 && size <= frames.size() ? size : 0;
}

} // namespace

QByteArray Rtu::request(const QByteArray& wire)
{
    const QByteArray body = wire.left(wire.size() - crcSize);
    return body + crcOf(body) == wire
        ? QByteArray::fromHex("aabb000000") + static_cast<char>(body.size()) + body
        : QByteArray();
}

QByteArray Rtu::replies(const QByteArray& frames)
{
    QByteArray wire;
    QByteArray rest = frames;
    while (const int size = frameSize(rest)) {
        const QByteArray body = rest.mid(headerSize, size - headerSize);
        wire += body + crcOf(body);
        rest.remove(0, size);
    }
    return wire + rest;
}

QByteArray Rtu::spoiled(const QByteArray& frame)
{
    QByteArray wire = replies(frame);
    wire[wire.size() - 1] = static_cast<char>(wire.at(wire.size() - 1) + 1);
    return wire;
}
