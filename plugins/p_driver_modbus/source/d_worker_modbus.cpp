#include "d_worker_modbus.h"

#include <utilities/utilities.h>

#include <QHostAddress>

#include <algorithm>
#include <memory>
#include <new>

namespace {

constexpr int keepAliveInterval = 5000;
constexpr int defaultHttpPort = 80;
constexpr int echoLength = 12;

QString functionCodeKey() { return QStringLiteral("funcCode"); }

int signedByte(const QByteArray& bytes, int offset)
{
    return static_cast<signed char>(bytes.at(offset));
}

// Deliberate: the byte count is taken as signed, so one of 128 or more becomes 65408 or more and
// never fits its reply. A caller sees replies with more than 63 registers rejected.
int byteCount(const QByteArray& reply)
{
    return static_cast<quint16>(signedByte(reply, ByteCountOffset));
}

// Deliberate: of the last data byte only the bit of the last requested coil is kept, the lower ones
// are cleared. For a quantity of 0, and most negative ones, the shift ends up above bit 7 and
// nothing is kept.
quint8 lastCoilMask(int quantity)
{
    const auto shift = static_cast<uint>((qint64{quantity} - 1) % 8) % 32U;
    return static_cast<quint8>(1U << shift);
}

ParameterMap accepted(const QByteArray& data)
{
    // Copying entries costs half of what finding a place for each does.
    static const ParameterMap form{{QStringLiteral("doneOk"), true},
                                   {QStringLiteral("values"), QVariant()}};
    ParameterMap reply = form;
    reply.last() = convUInt16BigEndianByteArrayToVariantList(data);
    return reply;
}

} // namespace

DWorkerModbus::DWorkerModbus(const QString& name) : DAbstractWorker(name)
{
    const auto declare = [this](const QString& function, auto handler) {
        declareFunction(function, WorkerFunction(this, handler));
    };
    // What a read or a multiple write does comes from the order's "funcCode"; the names differ for
    // the user only.
    declare(QStringLiteral("modbus_read_coilsRegister"), &DWorkerModbus::cbRead);
    declare(QStringLiteral("modbus_read_inputStatus"), &DWorkerModbus::cbRead);
    declare(QStringLiteral("modbus_read_holdingRegisters"), &DWorkerModbus::cbRead);
    declare(QStringLiteral("modbus_read_inputRegisters"), &DWorkerModbus::cbRead);
    declare(QStringLiteral("modbus_write_coilsRegister"), &DWorkerModbus::cbWriteSingleCoil);
    declare(QStringLiteral("modbus_write_singleRegister"), &DWorkerModbus::cbWriteSingleRegister);
    declare(QStringLiteral("modbus_write_multipleCoils"), &DWorkerModbus::cbWriteMultiple);
    declare(QStringLiteral("modbus_write_multipleRegisters"), &DWorkerModbus::cbWriteMultiple);
    declare(QStringLiteral("modbus_device_information"), &DWorkerModbus::cbDeviceInformation);
    setKeepAliveFunction(QStringLiteral("modbus_device_information"), ParameterMap(),
                         keepAliveInterval);
}

bool DWorkerModbus::isConnected() const
{
    return m_socket && m_socket->state() == QAbstractSocket::ConnectedState;
}

bool DWorkerModbus::sendRequest(quint64 orderId, const int* length, ParameterMap& result)
{
    if (*length < 1) {
        return refuse(log_line::nothingToSend);
    }
    if (!isConnected() || !m_socket) {
        return refuse(log_line::notConnected);
    }
    m_requestLength = *length;
    // Late or unsolicited bytes end here, so that what arrives from now on belongs to this request.
    m_socket->readAll();
    const qint64 written = m_socket
        ? m_socket->write(reinterpret_cast<const char*>(m_requestBuffer.data()), *length)
        : -1;
    // A partial write is a success: the time limit of the order decides about it.
    if (static_cast<int>(written) <= 0) {
        return refuse(log_line::sendFailed);
    }
    setAsyncResult(orderId, result);
    return true;
}

bool DWorkerModbus::refuse(const log_line::Entry& entry) const
{
    log_line::orderError(this, entry, currentOrderId());
    return false;
}

bool DWorkerModbus::beginRequest(quint64 orderId, const ParameterMap& parameters,
                                 const log_line::Entry& emptyEntry)
{
    if (parameters.isEmpty()) {
        log_line::orderError(this, emptyEntry, orderId);
        return false;
    }
    m_requestParameters = parameters;
    return true;
}

// The function code of a connection's own keep-alive function, 0 when it names no register type.
// The request map learns it, because the reply is judged by that map alone.
quint16 DWorkerModbus::keepAliveFunctionCode(const QString& function)
{
    const QStringList parts = function.split(QStringLiteral("modbus_read_"));
    const int code = parts.size() > 1 ? registerTypeToFunctionCode(parts.at(1)) : 0;
    if (code != 0) {
        m_requestParameters.insert(functionCodeKey(), code);
    }
    return static_cast<quint16>(code);
}

bool DWorkerModbus::cbRead(unsigned long long orderId, const ParameterMap& parameters,
                           ParameterMap& result)
{
    if (!beginRequest(orderId, parameters, log_line::emptyRead)) {
        return false;
    }
    int length = -1;
    bool found = false;
    bool valid = false;
    const QVariant* keepAlive = findValue(parameters, QStringLiteral("keepAliveFunction"));
    const quint16 functionCode = keepAlive != nullptr
        ? keepAliveFunctionCode(keepAlive->toString())
        : functionCodeParameter(orderId, parameters, &found, &valid);
    // Deliberate: the same flags again, so an order without a usable function code is not refused;
    // it goes out with function code 0 behind the log line of the lookup.
    const quint16 address = registerParameter(orderId, parameters, &found, &valid);
    if (found && valid) {
        const quint16 quantity = quantityParameter(orderId, parameters, nullptr, nullptr, 1);
        length = modbus_build_read_request(static_cast<quint8>(functionCode), m_framingMode,
                                           m_requestBuffer.data(), static_cast<quint8>(m_unitId),
                                           address, quantity);
    }
    return sendRequest(orderId, &length, result);
}

bool DWorkerModbus::cbWriteSingleCoil(unsigned long long orderId, const ParameterMap& parameters,
                                      ParameterMap& result)
{
    if (!beginRequest(orderId, parameters, log_line::emptyWriteCoil)) {
        return false;
    }
    int length = -1;
    bool found = false;
    bool valid = false;
    const quint16 address = registerParameter(orderId, parameters, &found, &valid);
    if (found && valid) {
        const RegisterValues values = dataParameter(orderId, parameters, &found, &valid);
        // A valid list can be empty all the same: the lookup leaves it alone for some types.
        if (found && valid && !values.isEmpty()) {
            length = modbus_build_write_single_coil(m_framingMode, m_requestBuffer.data(),
                                                    static_cast<quint8>(m_unitId), address,
                                                    values.first() != 0 ? 1 : 0);
        }
    }
    return sendRequest(orderId, &length, result);
}

bool DWorkerModbus::cbWriteSingleRegister(unsigned long long orderId,
                                          const ParameterMap& parameters, ParameterMap& result)
{
    if (!beginRequest(orderId, parameters, log_line::emptyWriteRegister)) {
        return false;
    }
    int length = -1;
    bool found = false;
    bool valid = false;
    // Deliberate: as for reads, a missing function code goes out as 0.
    const quint16 functionCode = functionCodeParameter(orderId, parameters, &found, &valid);
    const quint16 address = registerParameter(orderId, parameters, &found, &valid);
    if (found && valid) {
        const RegisterValues values = dataParameter(orderId, parameters, &found, &valid);
        if (values.isEmpty()) {
            log_line::error(this, log_line::emptyData);
        } else if (found && valid) {
            length = modbus_build_write_single_register(
                static_cast<quint8>(functionCode), m_framingMode, m_requestBuffer.data(),
                static_cast<quint8>(m_unitId), address, values.first());
        }
    }
    return sendRequest(orderId, &length, result);
}

bool DWorkerModbus::cbWriteMultiple(unsigned long long orderId, const ParameterMap& parameters,
                                    ParameterMap& result)
{
    if (!beginRequest(orderId, parameters, log_line::emptyWriteMultiple)) {
        return false;
    }
    bool found = false;
    bool valid = false;
    const quint16 functionCode = functionCodeParameter(orderId, parameters, &found, &valid);
    if (!found || !valid) {
        return refuse(log_line::noFunctionCode);
    }
    const quint16 address = registerParameter(orderId, parameters, &found, &valid);
    if (!found || !valid) {
        return refuse(log_line::noRegister);
    }
    const RegisterValues values = dataParameter(orderId, parameters, &found, &valid);
    constexpr int maxValues = modbus_max_values(std::tuple_size<decltype(m_requestBuffer)>::value);
    if (!found || !valid || values.size() > maxValues) {
        return refuse(log_line::noData);
    }
    return sendValues(orderId, functionCode, address, values, result);
}

// Deliberate: coils are not packed into bits. Each value of a list travels as a 16-bit word,
// whatever the function code.
bool DWorkerModbus::sendValues(quint64 orderId, quint16 functionCode, quint16 address,
                               const RegisterValues& values, ParameterMap& result)
{
    const auto count = static_cast<quint16>(values.size());
    const std::unique_ptr<quint8[]> block(new (std::nothrow) quint8[2 * std::size_t{count}]());
    if (!block) {
        return refuse(log_line::noBuffer);
    }
    quint8* target = block.get();
    for (const quint16 value : values) {
        *target++ = static_cast<quint8>(value >> 8);
        *target++ = static_cast<quint8>(value & 0xFF);
    }
    const int length = modbus_build_write_multiple_registers(
        static_cast<quint8>(functionCode), m_framingMode, m_requestBuffer.data(), block.get(),
        static_cast<quint8>(m_unitId), address, count);
    return sendRequest(orderId, &length, result);
}

bool DWorkerModbus::cbDeviceInformation(unsigned long long orderId, const ParameterMap& parameters,
                                        ParameterMap& result)
{
    // No test for an empty map: the keep-alive comes with one.
    m_requestParameters = parameters;
    m_requestParameters.insert(functionCodeKey(), int{ReportServerId});
    const int length = modbus_build_report_server_id(m_framingMode, m_requestBuffer.data(),
                                                     static_cast<quint8>(m_unitId));
    return sendRequest(orderId, &length, result);
}

ParameterMap DWorkerModbus::cbReply(const QByteArray& reply)
{
    const QVariant* code = findValue(m_requestParameters, functionCodeKey());
    const uint functionCode = code != nullptr ? code->toUInt() : 0;
    QByteArray data;
    Rejection rejection = checkHeader(reply, functionCode);
    if (rejection == nullptr) {
        rejection = takeData(reply, static_cast<quint16>(functionCode), data);
    }
    if (rejection != nullptr) {
        logRejection(*rejection, reply);
        return {{QStringLiteral("doneOk"), false}};
    }
    return static_cast<quint16>(functionCode) == ReportServerId ? deviceInformation(data)
                                                                : accepted(data);
}

DWorkerModbus::Rejection DWorkerModbus::checkHeader(const QByteArray& reply,
                                                    uint functionCode) const
{
    if (reply.size() < ReplyHeaderSize) {
        return &log_line::headerBadLength;
    }
    switch (modbus_check_reply_header(
        reinterpret_cast<const quint8*>(reply.constData()), static_cast<quint16>(reply.size()),
        static_cast<quint8>(m_unitId), static_cast<quint8>(functionCode))) {
    case ReplyHeaderException:
        return &log_line::headerException;
    case ReplyHeaderBadLength:
        return &log_line::headerBadLength;
    case ReplyHeaderOtherFunction:
        return &log_line::headerOtherFunction;
    default:
        // Deliberate: a reply from another unit id is taken like one from the unit that was asked.
        return nullptr;
    }
}

DWorkerModbus::Rejection DWorkerModbus::takeData(const QByteArray& reply, quint16 functionCode,
                                                 QByteArray& data) const
{
    switch (functionCode) {
    case ReadCoils:
    case ReadDiscreteInputs:
        return takeBits(reply, data);
    case ReadHoldingRegisters:
    case ReadInputRegisters:
    case ReportServerId:
        return takeBytes(reply, log_line::bytesTooShort, log_line::bytesMalformed, data);
    case WriteSingleCoil:
    case WriteSingleRegister:
        return takeSingleWrite(reply, functionCode, data);
    case WriteMultipleCoils:
    case WriteMultipleRegisters:
        return takeMultipleWrite(reply, data);
    default:
        // Deliberate: nothing is known of other functions; a good header is an accepted reply.
        return nullptr;
    }
}

DWorkerModbus::Rejection DWorkerModbus::takeBits(const QByteArray& reply, QByteArray& data) const
{
    const Rejection rejection =
        takeBytes(reply, log_line::bitsTooShort, log_line::bitsMalformed, data);
    if (rejection == nullptr && !data.isEmpty()) {
        const int quantity = getCurrentOrderParameters().value(QStringLiteral("dataSize")).toInt();
        char& last = data.data()[data.size() - 1];
        last = static_cast<char>(static_cast<quint8>(last) & lastCoilMask(quantity));
    }
    return rejection;
}

DWorkerModbus::Rejection DWorkerModbus::takeBytes(const QByteArray& reply,
                                                  const log_line::Entry& tooShort,
                                                  const log_line::Entry& malformed,
                                                  QByteArray& data)
{
    if (reply.size() < DataOffset) {
        return &tooShort;
    }
    if (byteCount(reply) != reply.size() - DataOffset) {
        return &malformed;
    }
    data = reply.mid(DataOffset);
    return nullptr;
}

DWorkerModbus::Rejection DWorkerModbus::takeSingleWrite(const QByteArray& reply,
                                                        quint16 functionCode,
                                                        QByteArray& data) const
{
    if (reply.size() == m_requestLength) {
        if (reply.size() != echoLength) {
            return &log_line::singleWriteMalformed;
        }
        data.append(echoesRequest(reply) ? '\1' : '\0');
        return nullptr;
    }
    // Deliberate: a reply of another size than the request is a successful write when its header is
    // consistent, whatever it carries.
    const int mbapLength = static_cast<quint16>(signedByte(reply, MbapLengthOffset) * 256
                                                + signedByte(reply, MbapLengthOffset + 1));
    if (mbapLength + MbapHeaderSize != reply.size() || signedByte(reply, UnitIdOffset) != m_unitId
        || signedByte(reply, FunctionCodeOffset) != functionCode) {
        return &log_line::singleWriteIncorrect;
    }
    data.append('\1');
    return nullptr;
}

DWorkerModbus::Rejection DWorkerModbus::takeMultipleWrite(const QByteArray& reply,
                                                          QByteArray& data) const
{
    if (reply.size() != echoLength) {
        return &log_line::multipleWriteIncorrect;
    }
    data.append(echoesRequest(reply) ? '\1' : '\0');
    return nullptr;
}

// Deliberate: an echo that differs is no rejection. The order is done, with the value 0 instead
// of 1.
bool DWorkerModbus::echoesRequest(const QByteArray& reply) const
{
    const auto* const bytes = reinterpret_cast<const quint8*>(reply.constData());
    return std::equal(bytes + UnitIdOffset, bytes + echoLength,
                      m_requestBuffer.data() + UnitIdOffset);
}

// "ipAdress" is the key's spelling in the field.
ParameterMap DWorkerModbus::deviceInformation(const QByteArray& info) const
{
    ParameterMap reply;
    reply.insert(QStringLiteral("info"), info);
    reply.insert(QStringLiteral("ipAdress"),
                 m_socket ? m_socket->peerAddress().toString() : QString());
    reply.insert(QStringLiteral("httpPort"),
                 m_connectionSettings.value(QStringLiteral("httpPort"), defaultHttpPort).toInt());
    reply.insert(QStringLiteral("doneOk"), true);
    return reply;
}

void DWorkerModbus::logRejection(const log_line::Entry& rejection, const QByteArray& reply) const
{
    log_line::error(this, rejection)
        << reply.toHex(':').toUpper()
        << ", request =" << convVariantMapToString(m_requestParameters);
}

ILocalWorker* createWorker(const QString& name) { return new DWorkerModbus(name); }
