#include "misbehaviour.h"

#include <algorithm>

namespace {

using Then = MisbehaviourKind::Then;

constexpr bool NeverGood = true;

constexpr int LengthHighOffset = 4;
constexpr int LengthOffset = 5;
constexpr int UnitOffset = 6;
constexpr int FunctionOffset = 7;
constexpr int ByteCountOffset = 8;
constexpr int DataOffset = 9;
constexpr int HeaderSize = 6; // what the length field does not count
constexpr int LastBitRead = 2; // functions 1 and 2 read bits, 3 and 4 registers
constexpr int LastRead = 4;
constexpr int LargestByteCount = 250;
constexpr char ServerDeviceFailure = 4;

int byteAt(const QByteArray& bytes, int offset) { return static_cast<uchar>(bytes.at(offset)); }

QByteArray changed(QByteArray reply, int offset, int by)
{
    reply[offset] = static_cast<char>(reply.at(offset) + by);
    return reply;
}

// With the length field that fits.
QByteArray framed(QByteArray reply)
{
    reply[LengthOffset] = static_cast<char>(reply.size() - HeaderSize);
    return reply;
}

// Other registers hold other values.
QByteArray ofOtherFunction(const QByteArray& reply)
{
    QByteArray other = changed(reply, FunctionOffset, 1);
    std::transform(other.begin() + qMin(DataOffset, other.size()), other.end(),
                   other.begin() + qMin(DataOffset, other.size()),
                   [](char byte) { return static_cast<char>(~byte); });
    return other;
}

QByteArray exceptionTo(const QByteArray& reply)
{
    QByteArray exception = reply.left(FunctionOffset + 1);
    exception[FunctionOffset] = static_cast<char>(exception.at(FunctionOffset) | 0x80);
    return framed(exception + ServerDeviceFailure);
}

// The reply to a read with data of another size, all in itself consistent.
QByteArray withData(const QByteArray& reply, int size)
{
    const bool fits = size >= 0 && size <= LargestByteCount;
    if (!fits || byteAt(reply, FunctionOffset) > LastRead) {
        return reply;
    }
    QByteArray other = reply.left(DataOffset + size);
    other.append(DataOffset + size - other.size(), '\x55');
    other[ByteCountOffset] = static_cast<char>(size);
    return framed(other);
}

QByteArray withValues(const QByteArray& reply, int more)
{
    const int valueSize = byteAt(reply, FunctionOffset) <= LastBitRead ? 1 : 2;
    return withData(reply, reply.size() - DataOffset + more * valueSize);
}

using Bytes = QByteArray;

Bytes nothing(const Bytes& /*reply*/, const Bytes& /*last*/) { return {}; }
Bytes whole(const Bytes& reply, const Bytes& /*last*/) { return reply; }
Bytes firstHalf(const Bytes& reply, const Bytes& /*last*/) { return reply.left(reply.size() / 2); }

} // namespace

constexpr MisbehaviourKinds misbehaviourKinds{{
    {"late", "the reply comes after the delay", nothing, Then::Rest},
    {"never", "no reply at all", nothing, Then::Nothing, NeverGood},
    {"half", "the first half at once, the rest after the delay", firstHalf, Then::Rest},
    {"byte-by-byte", "the reply in single bytes, 5 ms apart", nothing, Then::ByteByByte},
    {"drip",
     "the reply in single bytes, 250 ms apart, and copies of it in the same way without end",
     nothing, Then::Drip},
    {"twice", "the reply and a copy of it at once",
     [](const Bytes& reply, const Bytes&) { return reply + reply; }},
    {"copy-after", "a copy of the reply 5 ms after it", whole, Then::ReplySoon},
    {"copy-before", "a copy of the last reply, and the reply",
     [](const Bytes& reply, const Bytes& last) { return last + reply; }},
    {"stale", "a copy of the last reply, and 5 ms later the reply",
     [](const Bytes&, const Bytes& last) { return last; }, Then::ReplySoon},
    {"unasked", "some bytes more behind the reply",
     [](const Bytes& reply, const Bytes&) { return reply + "unasked"; }},
    {"flood", "copies of the reply without end, as fast as they go", whole, Then::Flood},
    {"other-unit", "the reply with the id of another unit",
     [](const Bytes& reply, const Bytes&) { return changed(reply, UnitOffset, 1); }},
    {"other-function", "a reply to another function",
     [](const Bytes& reply, const Bytes&) { return ofOtherFunction(reply); }, Then::Nothing,
     NeverGood},
    {"other-unit-and-function", "a reply to another function with the id of another unit",
     [](const Bytes& reply, const Bytes&) {
         return changed(ofOtherFunction(reply), UnitOffset, 1);
     },
     Then::Nothing, NeverGood},
    {"fewer-values", "a read is answered with one register less, or eight bits",
     [](const Bytes& reply, const Bytes&) { return withValues(reply, -1); }, Then::Nothing,
     NeverGood},
    {"more-values", "a read is answered with one register more, or eight bits",
     [](const Bytes& reply, const Bytes&) { return withValues(reply, 1); }, Then::Nothing,
     NeverGood},
    {"no-values", "a read is answered without any value",
     [](const Bytes& reply, const Bytes&) { return withData(reply, 0); }, Then::Nothing, NeverGood},
    {"wrong-length", "the length field tells one byte less",
     [](const Bytes& reply, const Bytes&) { return changed(reply, LengthOffset, -1); },
     Then::Nothing, NeverGood},
    {"huge-length", "the length field tells 256 bytes more",
     [](const Bytes& reply, const Bytes&) { return changed(reply, LengthHighOffset, 1); },
     Then::Nothing, NeverGood},
    {"garbage", "no Modbus at all",
     [](const Bytes&, const Bytes&) -> Bytes { return "HTTP/1.0 400 Bad Request\r\n\r\n"; },
     Then::Nothing, NeverGood},
    {"garbage-text", "text that names another unit, where a header has it",
     [](const Bytes&, const Bytes&) { return Bytes::fromHex("48545450394e31043430333020"); },
     Then::Nothing, NeverGood},
    {"garbage-function", "a frame of unit 1 with a function that has no such reply",
     [](const Bytes&, const Bytes&) { return Bytes::fromHex("aabb00000007011004deaddead"); },
     Then::Nothing, NeverGood},
    {"garbage-length", "a frame of unit 1 with a length that no frame has",
     [](const Bytes&, const Bytes&) { return Bytes::fromHex("aabb0000ffff010304deaddead"); },
     Then::Nothing, NeverGood},
    {"exception", "the exception server device failure",
     [](const Bytes& reply, const Bytes&) { return exceptionTo(reply); }, Then::Nothing, NeverGood},
    {"exception-other-unit", "an exception with the id of another unit",
     [](const Bytes& reply, const Bytes&) { return changed(exceptionTo(reply), UnitOffset, 1); },
     Then::Nothing, NeverGood},
    {"exception-other-function", "an exception to another function",
     [](const Bytes& reply, const Bytes&) {
         return changed(exceptionTo(reply), FunctionOffset, 1);
     },
     Then::Nothing, NeverGood},
    {"exception-too-long", "an exception with two bytes more than it should have",
     [](const Bytes& reply, const Bytes&) {
         return framed(exceptionTo(reply) + Bytes::fromHex("dead"));
     },
     Then::Nothing, NeverGood},
    {"close-before", "the connection is closed instead of a reply", nothing, Then::Close,
     NeverGood},
    {"close-within", "the connection is closed in the middle of the reply", firstHalf, Then::Close},
    {"close-after", "the connection is closed after the reply", whole, Then::Close},
    {"half-close-within", "from the middle of the reply on nothing is sent, but requests are taken",
     firstHalf, Then::HalfClose},
    {"half-close-after", "from the end of the reply on nothing is sent, but requests are taken",
     whole, Then::HalfClose},
    {"reboot", "all connections are closed, and the device is gone for the delay", nothing,
     Then::Reboot, NeverGood},
}};

const MisbehaviourKind* findMisbehaviour(const QString& name)
{
    const auto* const it =
        std::find_if(misbehaviourKinds.begin(), misbehaviourKinds.end(),
                     [&](const auto& kind) { return name == QLatin1String(kind.name); });
    return it != misbehaviourKinds.end() ? it : nullptr;
}
