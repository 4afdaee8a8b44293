#pragma once

#include <plugin_management/plugin_management_global.h>

#include <QString>

/// Where a reply ends and what its header tells. The worker base needs no more than this of a
/// device's protocol; a worker for another protocol sets its own with
/// DAbstractWorker::setReplyFraming(). Only the first function must be given: what a protocol's
/// header does not tell, its reply hook does.
///
/// The functions are given bytes that they do not own, for the time of the call, and may be called
/// at any time, on the thread of any worker: they keep no state. Sizes are in bytes.
struct ReplyFraming
{
    /// What frameLength() answers when it cannot give a length.
    enum : int { NeedMore = 0, Implausible = -1 };

    /// Length of the first frame in \a data, 1 or more (it may exceed \a size), NeedMore or
    /// Implausible, which fails the request at once. Called again with all that has come whenever
    /// more has.
    int (*frameLength)(const char* data, int size);
    /// The exception that the frame (a whole one that answers the request) reports, 1 to 255; 0
    /// when it is no well-formed exception reply.
    int (*exceptionCode)(const char* data, int size) = [](const char*, int) { return 0; };
    /// The standard's name for an exception; empty for one that it does not name.
    QString (*exceptionName)(int code) = [](int) { return QString(); };
    /// The unit that a request addresses or that a reply comes from, -1 when it names none. Of a
    /// request the first bytes are given, as many as requestHeadSize.
    int (*unit)(const char* data, int size) = [](const char*, int) { return -1; };
    /// False when the reply (a whole frame) cannot be one to the request (of which the first bytes
    /// are given). Such a reply fails its order as a bad reply whatever the reply hook says, and
    /// ends the connection: what follows on it would answer the wrong orders.
    bool (*answers)(const char* request, int requestSize, const char* reply,
                    int replySize) = [](const char*, int, const char*, int) { return true; };

    static constexpr int requestHeadSize = 16; ///< bytes of a request that are remembered
};

/// Modbus TCP: the length field of the MBAP header (offset 4, two bytes, big-endian, counted from
/// offset 6; 2 to 254 is plausible): Modbus Messaging on TCP/IP V1.0b, section 3.1.3, and the PDU
/// of 253 bytes at most of Modbus Application Protocol V1.1b3, section 4.1. Exceptions as in
/// section 7 there. A reply answers a request when it has its function code, or is a well-formed
/// exception to it, and holds as many coils or registers as a read (functions 1 to 4; there
/// sections 6.1 to 6.4) has asked for. From which unit it comes does not matter: gateways put their
/// own there.
HOST_PLUGIN_MANAGEMENT_EXPORT const ReplyFraming& mbapFraming();

/// Texts: a reply is a line, ended by a line feed and 1024 bytes long at the most.
HOST_PLUGIN_MANAGEMENT_EXPORT const ReplyFraming& lineFraming();
