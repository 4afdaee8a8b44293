#pragma once

#include <plugin_management/plugin_management_global.h>

#include <QString>

/// Where a reply ends and what its header tells. The worker base needs no more than this of a
/// device's protocol; a worker for another protocol sets its own with
/// DAbstractWorker::setReplyFraming(). Only the first function must be given: what a protocol's
/// header does not tell, its reply hook does.
struct ReplyFraming
{
    /// What frameLength() answers when it cannot give a length.
    enum : int { NeedMore = 0, Implausible = -1 };

    /// Length of the first frame in \a data (it may exceed \a size), NeedMore or Implausible.
    int (*frameLength)(const char* data, int size);
    /// The exception that the frame reports, 0 when it is no exception reply.
    int (*exceptionCode)(const char* data, int size) = [](const char*, int) { return 0; };
    /// The standard's name for an exception; empty for one that it does not name.
    QString (*exceptionName)(int code) = [](int) { return QString(); };
    /// The unit that a request addresses, -1 when it names none. The first bytes of a request, as
    /// many as requestHeadSize, are enough.
    int (*requestUnit)(const char* data, int size) = [](const char*, int) { return -1; };
    /// False when the reply cannot be one to the request (of which the first bytes are given): then
    /// the stream is out of step, and what follows on it would answer the wrong orders.
    bool (*answers)(const char* request, int requestSize, const char* reply,
                    int replySize) = [](const char*, int, const char*, int) { return true; };

    static constexpr int requestHeadSize = 16;
};

/// Modbus TCP: the length field of the MBAP header (offset 4, two bytes, big-endian, counted from
/// offset 6; 2 to 254 is plausible). Modbus Messaging on TCP/IP V1.0b, 3.1.3; exceptions as in
/// Modbus Application Protocol V1.1b3, 7.
HOST_PLUGIN_MANAGEMENT_EXPORT const ReplyFraming& mbapFraming();

/// Texts: a reply is a line, ended by a line feed and 1024 bytes long at the most.
HOST_PLUGIN_MANAGEMENT_EXPORT const ReplyFraming& lineFraming();
