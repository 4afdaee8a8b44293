#pragma once

#include <plugin_management/link_options.h>
#include <plugin_management/reply_framing.h>

#include <QByteArray>

#include <memory>
#include <utility>

/// Stands between the frames that a worker writes and reads, and what goes over the wire for them.
/// It touches nothing of the world: bytes in, bytes out. What it takes for another's reply it drops
/// and counts.
class Translation
{
public:
    /// What \a options ask for; null when the worker's bytes go over the wire as they are.
    static std::unique_ptr<Translation> make(const LinkOptions& options);
    /// The same for a connection that several workers of a framing share, each with its own unit.
    static std::unique_ptr<Translation> makeShared(const LinkOptions& options,
                                                   const ReplyFraming& framing);
    /// Why \a options cannot be had for a worker with this framing; empty when they can.
    static QString refusal(const LinkOptions& options, const ReplyFraming& framing);

    Translation() = default;
    virtual ~Translation() = default;
    Q_DISABLE_COPY(Translation)

    /// True when a reply can be told from every other one, so that late ones need no new
    /// connection.
    virtual bool tellsRepliesApart() const = 0;
    /// Whom the next requests are for; -1: the unit that they name.
    virtual void setUnit(int unit) = 0;
    /// A new connection: nothing that came over the last one counts any more.
    virtual void begin() = 0;
    /// Nobody waits for a reply to the last request any more.
    virtual void endRequest() = 0;
    /// What is to leave for these bytes of the worker; nothing while its frame is not whole.
    virtual QByteArray toWire(const char* data, int size) = 0;
    /// What the worker is to get for these bytes off the wire: whole frames. What nobody waits for
    /// it gets as it is, unless it can be told from every reply; and all that comes from then on,
    /// when nobody can tell any more where a frame begins.
    virtual QByteArray fromWire(const char* data, int size) = 0;
    /// What has been dropped since this was asked last.
    struct Dropped
    {
        int bytes = 0;
        int replies = 0;
    };
    Dropped takeDropped() { return std::exchange(m_dropped, {}); }
    /// True when the other side sends replies that nobody asked for, and seems not to end.
    bool isFlooded() const { return m_droppedInARow > mostInARow; }

protected:
    /// A whole reply.
    void drop(int size)
    {
        m_dropped.bytes += size;
        ++m_dropped.replies;
        m_droppedInARow += size;
    }
    void noteReply() { m_droppedInARow = 0; }

private:
    static constexpr int mostInARow = 64 * 1024;

    Dropped m_dropped;
    int m_droppedInARow = 0;
};
