#include "modbus_codec.h"

#include <endian.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace {

// Every request carries this id and no reply is matched by it: with one request in flight, the
// order of arrival pairs them.
constexpr std::uint16_t transactionId = 0xAABB;
constexpr std::uint16_t crcStart = 0xFFFF;
constexpr std::uint16_t crcPolynomial = 0xA001;
constexpr int maxSerialQuantity = 123;
constexpr std::size_t serialDataOffset = 3;

constexpr std::uint8_t highByte(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value >> 8);
}

constexpr std::uint8_t lowByte(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value & 0xFF);
}

using CrcTable = std::array<std::uint16_t, 256>;

constexpr CrcTable makeCrcTable()
{
    CrcTable table{};
    for (std::size_t index = 0; index < table.size(); ++index) {
        auto crc = static_cast<std::uint16_t>(index);
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = (crc & 1) != 0;
            crc = static_cast<std::uint16_t>((crc >> 1) ^ (carry ? crcPolynomial : 0));
        }
        table[index] = crc;
    }
    return table;
}

constexpr CrcTable crcTable = makeCrcTable();

constexpr std::uint16_t addToCrc(std::uint16_t crc, std::uint8_t byte)
{
    return static_cast<std::uint16_t>((crc >> 8) ^ crcTable[lowByte(crc) ^ byte]);
}

void storeBigEndian(std::uint8_t* target, std::uint16_t value)
{
    const std::uint16_t ordered = htobe16(value);
    std::memcpy(target, &ordered, sizeof(ordered));
}

void storeCrc(std::uint8_t* target, std::uint16_t crc)
{
    target[0] = lowByte(crc);
    target[1] = highByte(crc);
}

void writeMbapHeader(std::uint8_t* buffer, std::uint16_t length)
{
    storeBigEndian(buffer, transactionId);
    storeBigEndian(buffer + 2, 0);
    storeBigEndian(buffer + MbapLengthOffset, length);
}

// Ends a request of every framing but TCP: its body is in the buffer.
int endSerialFrame(int framingMode, std::uint8_t* buffer, std::uint16_t size)
{
    switch (framingMode) {
    case FRAMING_RTU:
        storeCrc(buffer + size, modbus_crc16(buffer, size));
        return size + 2;
    case FRAMING_LRC:
        buffer[size] = modbus_lrc(buffer, size);
        return size + 1;
    default:
        // Deliberate: the length goes where TCP framing has it, although there is no MBAP header. A
        // caller sees 00 06 in place of the last field of a six-byte body, and 00 02 behind a
        // two-byte one.
        storeBigEndian(buffer + MbapLengthOffset, size);
        return size;
    }
}

// A request whose unit id and PDU take \a size bytes, which \a fill puts where it is told.
template <std::size_t size, typename Fill>
int writeFrame(int framingMode, std::uint8_t* buffer, const Fill& fill)
{
    if (framingMode == FRAMING_TCP) {
        writeMbapHeader(buffer, size);
        fill(buffer + MbapHeaderSize);
        return MbapHeaderSize + size;
    }
    fill(buffer);
    return endSerialFrame(framingMode, buffer, size);
}

// Unit id, function code, and two words.
int writeTwoWords(int framingMode, std::uint8_t* buffer, std::uint8_t unitId,
                  std::uint8_t functionCode, std::uint16_t first, std::uint16_t second)
{
    return writeFrame<6>(framingMode, buffer, [=](std::uint8_t* body) {
        body[0] = unitId;
        body[1] = functionCode;
        storeBigEndian(body + 2, first);
        storeBigEndian(body + 4, second);
    });
}

} // namespace

int modbus_build_read_request(std::uint8_t functionCode, int framingMode, std::uint8_t* buffer,
                              std::uint8_t unitId, std::uint16_t address, std::uint16_t quantity)
{
    return writeTwoWords(framingMode, buffer, unitId, functionCode, address, quantity);
}

int modbus_build_write_single_register(std::uint8_t functionCode, int framingMode,
                                       std::uint8_t* buffer, std::uint8_t unitId,
                                       std::uint16_t address, std::uint16_t value)
{
    return writeTwoWords(framingMode, buffer, unitId, functionCode, address, value);
}

int modbus_build_write_single_coil(int framingMode, std::uint8_t* buffer, std::uint8_t unitId,
                                   std::uint16_t address, std::int32_t value)
{
    const auto state = static_cast<std::uint8_t>(0U - static_cast<std::uint32_t>(value));
    return writeTwoWords(framingMode, buffer, unitId, WriteSingleCoil, address,
                         static_cast<std::uint16_t>(state << 8));
}

int modbus_build_write_multiple_registers(std::uint8_t functionCode, int framingMode,
                                          std::uint8_t* buffer, const std::uint8_t* data,
                                          std::uint8_t unitId, std::uint16_t address,
                                          std::uint16_t quantity)
{
    const bool tcp = framingMode == FRAMING_TCP;
    if (!tcp && quantity > maxSerialQuantity) {
        return -1;
    }
    const int dataSize = 2 * quantity;
    const int bodySize = dataSize + 7;
    std::uint8_t* body = buffer;
    if (tcp) {
        writeMbapHeader(buffer, static_cast<std::uint16_t>(bodySize));
        body += MbapHeaderSize;
    }
    body[0] = unitId;
    body[1] = functionCode;
    storeBigEndian(body + 2, address);
    storeBigEndian(body + 4, quantity);
    body[6] = static_cast<std::uint8_t>(dataSize);
    if (dataSize > 0) {
        std::memcpy(body + 7, data, static_cast<std::size_t>(dataSize));
    }
    if (tcp) {
        return MbapHeaderSize + bodySize;
    }
    // Deliberate: the CRC stands here in every framing but TCP, the LRC one included.
    storeCrc(body + bodySize, modbus_crc16(body, static_cast<std::uint16_t>(bodySize)));
    return bodySize + 2;
}

int modbus_build_report_server_id(int framingMode, std::uint8_t* buffer, std::uint8_t unitId)
{
    return writeFrame<2>(framingMode, buffer, [=](std::uint8_t* body) {
        body[0] = unitId;
        body[1] = ReportServerId;
    });
}

int modbus_write_tcp_header(int framingMode, std::uint8_t* buffer)
{
    if (framingMode != FRAMING_TCP) {
        return 0;
    }
    writeMbapHeader(buffer, 0);
    return MbapHeaderSize;
}

int modbus_finish_frame(int framingMode, std::uint8_t* buffer, std::uint16_t headerLength,
                        std::uint16_t pduLength)
{
    if (framingMode == FRAMING_RTU) {
        storeCrc(buffer + pduLength, modbus_crc16(buffer, pduLength));
        return pduLength + 2;
    }
    if (framingMode == FRAMING_LRC) {
        // Deliberate: the LRC stands behind header and PDU, but the length returned leaves the
        // header out.
        const int end = headerLength + pduLength;
        buffer[end] = modbus_lrc(buffer, static_cast<std::uint16_t>(end));
        return pduLength + 1;
    }
    storeBigEndian(buffer + MbapLengthOffset, pduLength);
    return pduLength;
}

std::uint16_t modbus_crc16(const std::uint8_t* bytes, std::uint16_t count)
{
    std::uint16_t crc = crcStart;
    for (std::size_t index = 0; index < count; ++index) {
        crc = addToCrc(crc, bytes[index]);
    }
    return crc;
}

std::uint8_t modbus_lrc(const std::uint8_t* bytes, std::uint16_t count)
{
    unsigned int sum = 0;
    for (std::size_t index = 0; index < count; ++index) {
        sum += bytes[index];
    }
    return static_cast<std::uint8_t>(0U - sum);
}

std::uint8_t modbus_check_reply_header(const std::uint8_t* frame, std::uint16_t length,
                                       std::uint8_t unitId, std::uint8_t functionCode)
{
    if (frame[UnitIdOffset] != unitId) {
        return ReplyHeaderOtherUnit;
    }
    if ((frame[FunctionCodeOffset] & 0x80) != 0) {
        return ReplyHeaderException;
    }
    if (frame[FunctionCodeOffset] != functionCode) {
        return ReplyHeaderOtherFunction;
    }
    // Deliberate: only the low byte of the MBAP length counts, so a reply whose high byte is wrong
    // passes.
    const int announced = frame[MbapLengthOffset + 1] + MbapHeaderSize;
    return length == announced ? ReplyHeaderGood : ReplyHeaderBadLength;
}

bool modbus_check_frame(int framingMode, const std::uint8_t* frame, std::uint16_t length)
{
    switch (framingMode) {
    case FRAMING_RTU:
        return length >= 2
            && frame[length - 1] * 256 + frame[length - 2]
            == modbus_crc16(frame, static_cast<std::uint16_t>(length - 2));
    case FRAMING_LRC:
        return length >= 1
            && frame[length - 1] == modbus_lrc(frame, static_cast<std::uint16_t>(length - 1));
    default:
        return framingMode == FRAMING_TCP;
    }
}

std::uint16_t modbus_reply_uint16(const std::uint8_t* frame, std::uint8_t index)
{
    const std::uint8_t* data = frame + serialDataOffset + index;
    return static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

std::uint32_t modbus_reply_uint32(const std::uint8_t* frame, std::uint8_t index)
{
    const std::uint8_t* data = frame + serialDataOffset + index;
    return std::uint32_t{data[0]} << 24 | std::uint32_t{data[1]} << 16 | std::uint32_t{data[2]} << 8
        | data[3];
}
