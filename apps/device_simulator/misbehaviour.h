#pragma once

#include <QByteArray>
#include <QStringList>

#include <optional>

/// What a device can do wrong with a reply.
struct Misbehaviour
{
    enum class Kind {
        Late, ///< the reply comes after the delay
        Never,
        Half, ///< the first half at once, the rest after the delay
        ByteByByte,
        Twice, ///< the reply and a copy of it
        Unasked, ///< some bytes more behind the reply
        OtherUnit,
        OtherFunction,
        WrongLength,
        Garbage, ///< no Modbus at all
        Exception, ///< server device failure
        CloseBefore, ///< the connection is closed instead of a reply
        CloseWithin, ///< in the middle of it
        CloseAfter,
        Reboot, ///< all connections are closed, and the device is gone for the delay
    };

    Kind kind = Kind::Late;
    int every = 10; ///< each how many replies
    int delayMs = 3000;

    /// The kind with this name, such as "byte-by-byte".
    static std::optional<Kind> kindFromName(const QString& name);
    static QStringList names();
    /// What goes out at once in place of \a reply: bytes that are wrong, or a part of it, or
    /// nothing.
    QByteArray firstPart(const QByteArray& reply) const;
    /// What follows after the delay.
    QByteArray laterPart(const QByteArray& reply) const;
};
