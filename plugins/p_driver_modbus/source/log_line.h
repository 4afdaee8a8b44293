#pragma once

#include <QDebug>

class QObject;

/// The one form of the module's critical log lines, and all of their texts.
///
/// A line names the time, the thread, the reporting object, a source unit and a line, then the
/// message. It goes out when the returned stream is destroyed, so a caller may add items of its
/// own.
namespace log_line {

/// One error that the module can report. Unit and line are part of its text: they are its fixed
/// name and do not follow the code when that moves.
struct Entry
{
    const char* unit;
    int line;
    const char* message;
};

inline constexpr const char* connectUnit = "plugins/p_driver_modbus/source/d_cmd_drv_connect";
inline constexpr const char* listenUnit = "plugins/p_driver_modbus/source/d_cmd_drv_listen";
inline constexpr const char* readUnit = "plugins/p_driver_modbus/source/d_cmd_drv_read";
inline constexpr const char* writeUnit = "plugins/p_driver_modbus/source/d_cmd_drv_write";
inline constexpr const char* workerUnit = "plugins/p_driver_modbus/source/d_worker_modbus";
inline constexpr const char* lookupUnit = "plugins/p_driver_modbus/source/modbus_utilities";

// Whole messages, for error().
inline constexpr Entry badConnectReply{connectUnit, 116, "ERROR: Invalid reply format"};
inline constexpr Entry badDisconnectReply{connectUnit, 137, "ERROR: Invalid reply format"};
inline constexpr Entry readTypeUnknown{readUnit, 68, "ERROR: Register type not managed"};
inline constexpr Entry listenTypeUnknown{listenUnit, 75, "ERROR: Register type not managed"};
inline constexpr Entry writeTypeUnknown{writeUnit, 73, "ERROR: Register type not managed"};
inline constexpr Entry emptyData{workerUnit, 363, "ERROR: data is empty"};
inline constexpr Entry badData{lookupUnit, 92, "ERROR: data is not valid"};

// Messages behind "ERROR: OrderId =" and the id, for orderError().
inline constexpr Entry sendFailed{workerUnit, 259, ", Failure to send data!"};
inline constexpr Entry notConnected{workerUnit, 263, ", Driver not connected!"};
inline constexpr Entry nothingToSend{workerUnit, 267, ", packet lenght is null"};
inline constexpr Entry emptyRead{workerUnit, 275, ",  Empty parameters"};
inline constexpr Entry emptyWriteCoil{workerUnit, 315, ",  Empty parameters"};
inline constexpr Entry emptyWriteRegister{workerUnit, 342, ",  Empty parameters"};
inline constexpr Entry emptyWriteMultiple{workerUnit, 376, ",  Empty parameters"};
inline constexpr Entry noBuffer{workerUnit, 403,
                                ", Modbus worker : Failure to allocate data buffer!"};
inline constexpr Entry noData{workerUnit, 407, ", Modbus worker : Failure to get data!"};
inline constexpr Entry noRegister{workerUnit, 410, ", Modbus worker : Failure to get register!"};
inline constexpr Entry noFunctionCode{workerUnit, 413,
                                      ", Modbus worker : Failure to get functionCode!"};
inline constexpr Entry manyValues{lookupUnit, 95, ", Multiple values isn't managed :"};
inline constexpr Entry missingField{lookupUnit, 101, ", No"};

// Why a reply was rejected, for error(). The checks that share a text are told apart by the line.
inline constexpr const char* exceptionText = "ERROR: !!!!!  EXCEPTION  !!!!! Reply =";
inline constexpr const char* badLengthText = "ERROR: !!!!!  BAD REPLY LENGTH  !!!!! Reply =";
inline constexpr const char* otherFunctionText =
    "ERROR: !!!!!  UNEXPECTED FUNCTION CODE  !!!!! Reply =";
inline constexpr const char* tooShortText = "ERROR: !!!!!  REPLY SIZE TOO SHORT  !!!!! Reply =";
inline constexpr const char* malformedText = "ERROR: !!!!!  MALFORMED REPLY SIZE  !!!!! Reply =";
inline constexpr const char* incorrectText = "ERROR: !!!!!  NOT CORRECT REPLY SIZE  !!!!! Reply =";

inline constexpr Entry headerException{workerUnit, 441, exceptionText};
inline constexpr Entry headerBadLength{workerUnit, 445, badLengthText};
inline constexpr Entry headerOtherFunction{workerUnit, 449, otherFunctionText};
inline constexpr Entry bitsTooShort{workerUnit, 461, tooShortText};
inline constexpr Entry bitsMalformed{workerUnit, 469, malformedText};
inline constexpr Entry bytesTooShort{workerUnit, 492, tooShortText};
inline constexpr Entry bytesMalformed{workerUnit, 499, malformedText};
inline constexpr Entry singleWriteMalformed{workerUnit, 513, malformedText};
inline constexpr Entry singleWriteIncorrect{workerUnit, 527, incorrectText};
inline constexpr Entry multipleWriteIncorrect{workerUnit, 538, incorrectText};

/// A line for \a object, null for a free function, that ends in the entry's message.
QDebug error(const QObject* object, const Entry& entry);
/// The same with "ERROR: OrderId =" and the id before the message.
QDebug orderError(const QObject* object, const Entry& entry, quint64 orderId);

} // namespace log_line
