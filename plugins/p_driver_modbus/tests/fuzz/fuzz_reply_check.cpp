// The codec's judgements of received frames.

#include "fuzz_input.h"
#include "modbus_codec.h"

#include <vector>

int LLVMFuzzerTestOneInput(const quint8* data, size_t size)
{
    FuzzInput input(data, size);
    const int mode = input.byte() % 4;
    const quint8 unit = input.byte();
    const quint8 function = input.byte();
    const QByteArray rest = input.rest();
    const std::vector<quint8> frame(rest.begin(), rest.end());
    const auto length = static_cast<quint16>(frame.size());
    if (length >= ReplyHeaderSize
        && modbus_check_reply_header(frame.data(), length, unit, function) > ReplyHeaderBadLength) {
        qFatal("impossible header result");
    }
    modbus_check_frame(mode, frame.data(), length);
    return 0;
}
