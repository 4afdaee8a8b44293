#pragma once

#include <cstdint>

/// Modbus frames as plain bytes: builders of requests and judges of replies, in three framings.
///
/// Free functions without state, logging or allocation. A builder writes into the caller's buffer
/// from offset 0, without knowing its size, and returns the number of bytes to send. It checks no
/// argument unless it says so. 16-bit fields travel high byte first (Modbus Application Protocol
/// V1.1b3, 4.2), a CRC low byte first (Modbus over Serial Line V1.02, 2.5.1.2).

/// How a frame is wrapped. Any other number is no error: a builder then writes unit id and PDU, and
/// its PDU length at offsets 4 and 5 all the same, which for a PDU of five bytes overwrites its
/// last two.
enum FramingMode : int {
    FRAMING_RTU = 0, ///< unit id, PDU, CRC-16
    FRAMING_LRC = 1, ///< unit id, PDU, LRC, all in raw bytes: no colon, no hexadecimal, no CR LF
    FRAMING_TCP = 2, ///< MBAP header, unit id, PDU
};

/// Modbus Application Protocol V1.1b3, section 6.
enum FunctionCode : std::uint8_t {
    ReadCoils = 1,
    ReadDiscreteInputs = 2,
    ReadHoldingRegisters = 3,
    ReadInputRegisters = 4,
    WriteSingleCoil = 5,
    WriteSingleRegister = 6,
    WriteMultipleCoils = 15,
    WriteMultipleRegisters = 16,
    ReportServerId = 17,
};

/// What modbus_check_reply_header() answers: the first of these that applies, in the order 1, 2,
/// 3, 4.
enum ReplyHeader : std::uint8_t {
    ReplyHeaderGood = 0,
    ReplyHeaderOtherUnit = 1, ///< nothing but the unit id has been looked at
    ReplyHeaderException = 2, ///< bit 7 of the function code is set, whatever the function
    ReplyHeaderOtherFunction = 3,
    ReplyHeaderBadLength = 4,
};

/// The layout of a frame in TCP framing. Modbus Messaging on TCP/IP V1.0b, 3.1.3.
enum MbapLayout : int {
    MbapLengthOffset = 4, ///< two bytes: how many follow them
    MbapHeaderSize = 6, ///< up to and with the length field
    UnitIdOffset = 6,
    FunctionCodeOffset = 7,
    ReplyHeaderSize = 8, ///< up to and with the function code
    ByteCountOffset = 8,
    DataOffset = 9,
};

/// Values that fit one write-multiple request in \a bufferSize bytes of TCP framing.
constexpr int modbus_max_values(int bufferSize) { return (bufferSize - 13) / 2; }

int modbus_build_read_request(std::uint8_t functionCode, int framingMode, std::uint8_t* buffer,
                              std::uint8_t unitId, std::uint16_t address, std::uint16_t quantity);
int modbus_build_write_single_register(std::uint8_t functionCode, int framingMode,
                                       std::uint8_t* buffer, std::uint8_t unitId,
                                       std::uint16_t address, std::uint16_t value);
/// \a value is 1 for on and 0 for off; it is sent negated modulo 256 (FF 00 and 00 00).
int modbus_build_write_single_coil(int framingMode, std::uint8_t* buffer, std::uint8_t unitId,
                                   std::uint16_t address, std::int32_t value);
/// \a data holds 2 * \a quantity bytes in wire order. TCP framing takes any quantity: the buffer
/// must hold 2 * quantity + 13 bytes. Every other framing answers -1 above 123 and writes nothing.
int modbus_build_write_multiple_registers(std::uint8_t functionCode, int framingMode,
                                          std::uint8_t* buffer, const std::uint8_t* data,
                                          std::uint8_t unitId, std::uint16_t address,
                                          std::uint16_t quantity);
int modbus_build_report_server_id(int framingMode, std::uint8_t* buffer, std::uint8_t unitId);

/// Starts a frame by hand: the MBAP header with length 0 in TCP framing, else nothing. Returns the
/// header's length, 6 or 0.
int modbus_write_tcp_header(int framingMode, std::uint8_t* buffer);
/// Ends a frame by hand. \a pduLength counts the unit id. RTU: appends the CRC of the first
/// \a pduLength bytes and returns pduLength + 2. LRC: appends the LRC of header and PDU and returns
/// pduLength + 1, without the header. Else: stores the MBAP length and returns pduLength.
int modbus_finish_frame(int framingMode, std::uint8_t* buffer, std::uint16_t headerLength,
                        std::uint16_t pduLength);

/// CRC-16/MODBUS; 0xFFFF for no bytes.
std::uint16_t modbus_crc16(const std::uint8_t* bytes, std::uint16_t count);
/// The two's complement of the sum of the bytes; 0 for no bytes.
std::uint8_t modbus_lrc(const std::uint8_t* bytes, std::uint16_t count);

/// Judges the header of a reply in TCP framing; see ReplyHeader. Transaction id, protocol id and
/// the high byte of the MBAP length play no part. The frame must hold ReplyHeaderSize bytes,
/// whatever \a length says: its first bytes are read before that is looked at.
std::uint8_t modbus_check_reply_header(const std::uint8_t* frame, std::uint16_t length,
                                       std::uint8_t unitId, std::uint8_t functionCode);
/// True when the frame's checksum is right. TCP framing has none and is always right; an unknown
/// framing, or a frame too short for its checksum, never is.
bool modbus_check_frame(int framingMode, const std::uint8_t* frame, std::uint16_t length);
/// A number in the data of an RTU or LRC read reply; \a index counts bytes from the first data
/// byte, offset 3. The frame must hold them: nothing is checked.
std::uint16_t modbus_reply_uint16(const std::uint8_t* frame, std::uint8_t index);
std::uint32_t modbus_reply_uint32(const std::uint8_t* frame, std::uint8_t index);
