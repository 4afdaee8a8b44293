#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <vector>

/// One thing that a device can do wrong with a reply: what goes out at once in its place, and what
/// happens then.
struct MisbehaviourKind
{
    enum class Then {
        Nothing,
        Rest, ///< what is left of the reply follows after the delay
        ReplySoon, ///< the reply, or a copy of it, follows within some milliseconds
        ByteByByte, ///< the reply follows in single bytes, some milliseconds apart
        Drip, ///< the same slower than any time limit, and copies of it without end
        Flood, ///< copies of the reply follow without end, as fast as they go
        Close, ///< the connection is closed
        HalfClose, ///< nothing is sent any more, but requests are still taken
        Reboot, ///< all connections are closed, and the device is gone for the delay
    };

    const char* name; ///< such as "byte-by-byte"
    const char* text; ///< what it does, in some words
    /// What goes out at once. \a last is the reply before on this connection. Gives \a reply back
    /// where this kind can do nothing to it.
    QByteArray (*now)(const QByteArray& reply, const QByteArray& last);
    Then then = Then::Nothing;
    bool isNeverGood = false; ///< there is nothing in it that a read could take a value from

    /// The reply does not come in one go.
    bool sendsInParts() const
    {
        return then == Then::Rest || then == Then::ByteByByte || then == Then::Drip;
    }

    /// True when \a reply would leave as it is, and nothing would follow.
    bool spares(const QByteArray& reply, const QByteArray& last) const
    {
        return then == Then::Nothing && now(reply, last) == reply;
    }
};

using MisbehaviourKinds = std::array<MisbehaviourKind, 33>;
extern const MisbehaviourKinds misbehaviourKinds;
/// The kind of this name, null when there is none.
const MisbehaviourKind* findMisbehaviour(const QString& name);

/// How a device misbehaves.
struct Misbehaviour
{
    std::vector<const MisbehaviourKind*> kinds; ///< one is drawn for each reply that is spoiled
    int every = 10; ///< each how many replies
    int delayMs = 3000;
    int seed = 1; ///< another seed makes other draws
};
