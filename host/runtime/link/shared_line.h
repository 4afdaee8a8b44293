#pragma once

#include <runtime/engine/link_life.h>
#include <runtime/link/link.h>
#include <runtime/loop/deadline.h>

#include <deque>

class SharedLine;

/// A worker's place on a connection that it shares with others. It is open for its worker, or not,
/// as a link of its own would be; and it asks in turns with the others. Belongs to one thread.
class LinePlace
{
public:
    /// What the line tells. But for readable, which comes from look() as well, it is told from the
    /// event loop, so that nobody's code runs within what another one does.
    struct Events
    {
        fastdelegate::Delegate<void> opened;
        fastdelegate::Delegate<void, const QString&> failed; ///< the attempt, and why
        fastdelegate::Delegate<void, const QString&> ended; ///< the connection, and why
        /// The connection was closed, as \a why tells, for everybody to open it again.
        fastdelegate::Delegate<void, const QString&> replaced;
        fastdelegate::Delegate<void, const LinkLife&> turnCame;
        fastdelegate::Delegate<void> readable; ///< there are bytes, or the end; it has the turn
    };

    /// \a options and \a framing say which other workers it can share with.
    LinePlace(const LinkOptions& options, const ReplyFraming& framing, const Events& events,
              const LinkSocket::Watch& watch);
    ~LinePlace();
    Q_DISABLE_COPY(LinePlace)

    /// Null: no TLS. Taken by the next connection that is opened for this place.
    void setTls(std::unique_ptr<TlsSettings> settings) { m_tls = std::move(settings); }
    /// Null: no serial line.
    void setSerial(const SerialSettings* settings)
    {
        m_serial = settings != nullptr ? std::make_unique<SerialSettings>(*settings) : nullptr;
    }
    /// Joins the connection, which is opened if there is none; \a anew: closed and opened again for
    /// everybody.
    void open(const QString& host, quint16 port, bool anew);
    /// Leaves it; the last one closes it, and so does \a isSpoiled for everybody. What it has asked
    /// for does not come.
    void close(bool isSpoiled);
    /// Asks for the turn. When it is there at once, what is known of the device; else null, and it
    /// comes later.
    const LinkLife* askTurn();
    bool hasTurn() const;
    /// It is not needed any more. \a isOver: nothing can come any more of what was asked.
    void giveTurn(bool isOver, const LinkLife& life);
    /// Takes in what has happened already, before the event loop comes to it.
    void look();

    /// What an attempt to connect still waits for, as Link has it.
    QString missing() const;

    /// Null before the first open().
    LinkSocket* socket();

private:
    friend class SharedLine;
    enum class State : quint8 { Off, Waiting, On };

    LinkOptions m_options;
    const ReplyFraming& m_framing;
    Events m_events;
    LinkSocket::Watch m_watch;
    std::unique_ptr<TlsSettings> m_tls;
    std::unique_ptr<SerialSettings> m_serial;
    std::shared_ptr<SharedLine> m_line; ///< kept while off, as its transaction ids go on
    State m_state = State::Off;
};

/// One connection for the workers of a thread that name the same endpoint and go the same way over
/// the wire. It alone cuts what arrives and numbers what leaves: half a reply to one of them is
/// still half a reply when the next one asks.
class SharedLine final : public std::enable_shared_from_this<SharedLine>
{
public:
    /// Found, or made; it lives as long as somebody holds it.
    static std::shared_ptr<SharedLine> of(const LinePlace& place, const QString& host,
                                          quint16 port);

    SharedLine(QString host, quint16 port, const LinkOptions& options, const ReplyFraming& framing);
    ~SharedLine();
    Q_DISABLE_COPY(SharedLine)

    bool isFor(const LinePlace& place, const QString& host, quint16 port) const;
    void add(LinePlace& place) { m_places.push_back(&place); }
    void remove(LinePlace& place);
    void open(LinePlace& place, bool anew);
    void close(LinePlace& place, bool isSpoiled);
    const LinkLife* ask(LinePlace& place);
    void takeTurn(LinePlace& place, bool isOver, const LinkLife& life);
    void look(LinePlace& place);
    bool isTurnOf(const LinePlace& place) const { return m_holder == &place && !m_isTurnComing; }
    QString missing() const { return m_link.missing(); }
    LinkSocket& socket() { return m_link.socket(); }

private:
    enum class State : quint8 { Closed, Opening, Open };
    enum class Kind : quint8 { Opened, Failed, Ended, Replaced, Turn };
    struct Notice
    {
        LinePlace* place;
        Kind kind;
        QString text;
    };

    // What the connection does.
    void handleOpened();
    void handleFailed(const QString& why);
    void handleReadable();
    void handleWritten(const char* data, int size);
    void handleDrained(int size);
    void handleDropped(int size, int replies);
    void handlePassed(bool outgoing, const char* data, int size);
    void readUnasked();

    void begin(LinePlace& place);
    void spoil(const QString& why);
    void spoilLater();
    void lose(const QString& why);
    void closeFor(Kind kind, const QString& why);
    bool isUsed() const;
    void leaveTurn(const LinePlace& place);
    void forgetTurn();
    void grantNext();
    void beginTurn(LinePlace& place);

    void post(LinePlace& place, Kind kind, const QString& text = {});
    void forgetNotices(const LinePlace& place);
    void tellNext();
    void tell(const Notice& notice);

    QString m_host;
    quint16 m_port;
    LinkOptions m_options; ///< of whoever made it, the unit aside
    const ReplyFraming& m_framing;
    Link m_link;
    State m_state = State::Closed;
    bool m_isTainted = false; ///< something may come that nobody waits for: nothing leaves any more
    LinkLife m_life;
    std::vector<LinePlace*> m_places; ///< whose turn is longest ago first
    std::deque<LinePlace*> m_waiting; ///< for the turn
    LinePlace* m_holder = nullptr; ///< of the turn
    bool m_isTurnComing = false; ///< the holder has not been told yet
    bool m_hasAsked = false; ///< the holder has, and may wait for a reply
    LinePlace* m_lastHolder = nullptr; ///< who hears of what belongs to nobody
    std::deque<Notice> m_notices;
    Deadline m_due;
};
