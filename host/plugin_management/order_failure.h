#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

/// Why an order, or one repetition of it, failed. A value: copy it, use it on any thread.
struct OrderFailure
{
    enum class Code {
        None,
        Usage, ///< the order itself is wrong (a parameter, a function name), or the queue is full
        NotConnected, ///< no connection, or it was lost while the request was out
        Timeout, ///< the device did not answer in time
        DeviceException, ///< an exception reply: Modbus Application Protocol V1.1b3, section 7
        BadReply, ///< the device's reply was not one to this request
        Stopped, ///< the order was stopped before it could end
    };

    Code code = Code::None;
    QString text; ///< what failed and why, one line
    int exceptionCode = 0; ///< of a DeviceException, 1 to 255
    /// The unit that was asked (of an exception: that answered), 0 to 255: Modbus Messaging on
    /// TCP/IP V1.0b, section 3.1.3. -1 when no request went out, or the protocol has no units.
    int unitId = -1;
    bool byKeepAlive = false; ///< of NotConnected: lost as the keep-alive got no answer

    explicit operator bool() const { return code != Code::None; }

    /// A failure of this kind; \a text says what failed and why, in one line.
    HOST_PLUGIN_MANAGEMENT_EXPORT static OrderFailure of(Code code, const QString& text);
    /// The order itself is wrong; \a text tells how.
    HOST_PLUGIN_MANAGEMENT_EXPORT static OrderFailure usage(const QString& text);
    /// The device answered the exception \a code; \a name is its protocol's name for it, or empty.
    HOST_PLUGIN_MANAGEMENT_EXPORT static OrderFailure exception(int code, const QString& name);

    /// As a reply map: "doneOk" false, "error", "errorCode", and where they apply "exceptionCode"
    /// and "unitId".
    HOST_PLUGIN_MANAGEMENT_EXPORT ParameterMap toReply() const;
    /// Out of a reply map; None of one that tells of no failure. One whose "doneOk" is false and
    /// that names no reason, or an unknown one, is a BadReply.
    HOST_PLUGIN_MANAGEMENT_EXPORT static OrderFailure fromReply(const ParameterMap& reply);
    /// The code's name in JSON: "usage", "not_connected", "timeout", "device_exception",
    /// "bad_reply", "stopped"; empty for None.
    HOST_PLUGIN_MANAGEMENT_EXPORT static QString codeName(Code code);
};
