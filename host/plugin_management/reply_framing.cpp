#include <plugin_management/reply_framing.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr int lengthOffset = 4;
constexpr int headerSize = 6; // what the length field does not count
constexpr int unitOffset = 6;
constexpr int functionOffset = 7;
constexpr int exceptionOffset = 8;
constexpr int exceptionSize = 9;
constexpr int byteCountOffset = 8;
constexpr int quantityOffset = 10;
constexpr int requestSize = 12; // of a read
constexpr int valuesOffset = 9;
constexpr int shortestBody = 2; // unit id and function code
constexpr int longestBody = 254; // unit id and a PDU of 253 bytes
constexpr uchar exceptionBit = 0x80;

uchar byteAt(const char* data, int offset) { return static_cast<uchar>(data[offset]); }

int mbapFrameLength(const char* data, int size)
{
    if (size < headerSize) {
        return ReplyFraming::NeedMore;
    }
    const int body = byteAt(data, lengthOffset) << 8 | byteAt(data, lengthOffset + 1);
    const bool plausible = body >= shortestBody && body <= longestBody;
    return plausible ? headerSize + body : int(ReplyFraming::Implausible);
}

int mbapExceptionCode(const char* data, int size)
{
    const bool exception = size == exceptionSize && (byteAt(data, functionOffset) & exceptionBit);
    return exception ? byteAt(data, exceptionOffset) : 0;
}

QString mbapExceptionName(int code)
{
    static constexpr std::array names{
        "",
        "illegal function",
        "illegal data address",
        "illegal data value",
        "server device failure",
        "acknowledge",
        "server device busy",
        "",
        "memory parity error",
        "",
        "gateway path unavailable",
        "gateway target device failed to respond",
    };
    const auto index = static_cast<std::size_t>(code);
    return index < names.size() ? QString::fromLatin1(names[index]) : QString();
}

int mbapUnit(const char* data, int size)
{
    return size > unitOffset ? byteAt(data, unitOffset) : -1;
}

// The data bytes that a read must be answered with, -1 for another function.
int expectedByteCount(const char* request, int size)
{
    if (size < requestSize) {
        return -1;
    }
    const int quantity = byteAt(request, quantityOffset) << 8 | byteAt(request, quantityOffset + 1);
    switch (byteAt(request, functionOffset)) {
    case 1: // coils
    case 2: // discrete inputs
        return (quantity + 7) / 8;
    case 3: // holding registers
    case 4: // input registers
        return 2 * quantity;
    default:
        return -1;
    }
}

bool holds(const char* reply, int size, int byteCount)
{
    return size == valuesOffset + byteCount && byteAt(reply, byteCountOffset) == byteCount;
}

bool mbapAnswers(const char* request, int requestSize, const char* reply, int replySize)
{
    if (requestSize <= functionOffset || replySize <= functionOffset) {
        return false;
    }
    const int asked = byteAt(request, functionOffset);
    const int answered = byteAt(reply, functionOffset);
    if (answered == (asked | exceptionBit)) {
        return mbapExceptionCode(reply, replySize) != 0;
    }
    const int byteCount = expectedByteCount(request, requestSize);
    return answered == asked && (byteCount < 0 || holds(reply, replySize, byteCount));
}

constexpr int longestLine = 1024;

int lineLength(const char* data, int size)
{
    const auto searched = static_cast<std::size_t>(std::min(size, longestLine));
    const void* end = std::memchr(data, '\n', searched);
    if (end != nullptr) {
        return static_cast<int>(static_cast<const char*>(end) - data) + 1;
    }
    return size < longestLine ? ReplyFraming::NeedMore : ReplyFraming::Implausible;
}

} // namespace

const ReplyFraming& mbapFraming()
{
    static constexpr ReplyFraming framing{mbapFrameLength, mbapExceptionCode, mbapExceptionName,
                                          mbapUnit, mbapAnswers};
    return framing;
}

const ReplyFraming& lineFraming()
{
    static constexpr ReplyFraming framing{lineLength};
    return framing;
}
