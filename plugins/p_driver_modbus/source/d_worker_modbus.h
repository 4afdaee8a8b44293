#pragma once

#include "log_line.h"
#include "modbus_codec.h"
#include "modbus_utilities.h"

#include <plugin_management/d_abstract_worker.h>

#include <array>

/// The module's worker: one Modbus request at a time to one device, in TCP framing, for unit 0.
///
/// Its nine functions ("modbus_read_...", "modbus_write_...", "modbus_device_information") build a
/// frame out of the order's parameters and write it; the base pairs the reply with the order and
/// hands it to cbReply(). The device information function is the keep-alive as well.
class DWorkerModbus : public DAbstractWorker
{
    Q_OBJECT

public:
    explicit DWorkerModbus(const QString& name);

    /// True when there is a live socket and it is connected.
    bool isConnected() const override;

protected:
    /// Judges one reply against the request in flight. Accepted: "doneOk" true with "values" (list
    /// of 16-bit numbers) or, for device information, "info" (bytes), "ipAdress" (text) and
    /// "httpPort" (int). Rejected: "doneOk" false alone, and one critical log line.
    ParameterMap cbReply(const QByteArray& reply) override;

    /// Writes the request buffer's first \a length bytes to the socket and leaves the order open
    /// for the reply. False, with one critical log line, when there is nothing to send (a length
    /// below 1), no connection, or the socket takes nothing.
    bool sendRequest(quint64 orderId, const int* length, ParameterMap& result);

    int m_requestLength = 0; ///< of the last frame handed to the socket, 0 before the first one
    std::array<quint8, 256> m_requestBuffer{}; ///< the last frame built
    int m_framingMode = FRAMING_TCP;
    quint16 m_unitId = 0;

private:
    // The check that a reply failed; null when it passed.
    using Rejection = const log_line::Entry*;

    bool cbRead(unsigned long long orderId, const ParameterMap& parameters, ParameterMap& result);
    bool cbWriteSingleCoil(unsigned long long orderId, const ParameterMap& parameters,
                           ParameterMap& result);
    bool cbWriteSingleRegister(unsigned long long orderId, const ParameterMap& parameters,
                               ParameterMap& result);
    bool cbWriteMultiple(unsigned long long orderId, const ParameterMap& parameters,
                         ParameterMap& result);
    bool cbDeviceInformation(unsigned long long orderId, const ParameterMap& parameters,
                             ParameterMap& result);

    bool beginRequest(quint64 orderId, const ParameterMap& parameters,
                      const log_line::Entry& emptyEntry);
    quint16 keepAliveFunctionCode(const QString& function);
    bool sendValues(quint64 orderId, quint16 functionCode, quint16 address,
                    const RegisterValues& values, ParameterMap& result);
    bool refuse(const log_line::Entry& entry) const;

    Rejection checkHeader(const QByteArray& reply, uint functionCode) const;
    Rejection takeData(const QByteArray& reply, quint16 functionCode, QByteArray& data) const;
    Rejection takeBits(const QByteArray& reply, QByteArray& data) const;
    static Rejection takeBytes(const QByteArray& reply, const log_line::Entry& tooShort,
                               const log_line::Entry& malformed, QByteArray& data);
    Rejection takeSingleWrite(const QByteArray& reply, quint16 functionCode,
                              QByteArray& data) const;
    Rejection takeMultipleWrite(const QByteArray& reply, QByteArray& data) const;
    bool echoesRequest(const QByteArray& reply) const;
    ParameterMap deviceInformation(const QByteArray& info) const;
    void logRejection(const log_line::Entry& rejection, const QByteArray& reply) const;
};

/// A new worker with this name; the caller owns it.
ILocalWorker* createWorker(const QString& name);
