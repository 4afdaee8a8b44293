#pragma once

#include <runtime/engine/backoff.h>
#include <runtime/engine/link_life.h>

#include <QString>

#include <limits>

/// When the link of a worker is opened, replaced, taken as lost and tried again. It decides only:
/// sockets are the shell's. Times are microseconds of a clock that never goes back.
class LinkKeeper
{
public:
    static constexpr qint64 never = std::numeric_limits<qint64>::max();
    static constexpr int defaultLimitMs = 5000;

    struct Endpoint
    {
        QString host;
        quint16 port = 0; ///< 0: the host is the whole of it, a serial line
        int limitMs = defaultLimitMs; ///< for one attempt to connect

        QString text() const
        {
            return port == 0 ? host : QStringLiteral("%1:%2").arg(host, QString::number(port));
        }
    };

    /// What the end of an attempt means.
    enum class Failed {
        First, ///< the connect has failed; there will be no other attempt
        Trying, ///< there has been no link yet and it is tried again: whoever waits must hear why
        Again, ///< it is tried again later
        Lost, ///< so it is, and whoever believes the link to be open must hear that it is lost
    };

    explicit LinkKeeper(unsigned seed) : m_backoff(seed) { }

    /// Whether a first attempt that fails is tried again, for ever. To be said before begin().
    void setKeepTrying(bool keepTrying) { m_keepsTrying = keepTrying; }
    /// A connect begins its first attempt.
    void begin(const Endpoint& endpoint, qint64 nowUs);
    /// The link is closed for good.
    void end();
    /// Nobody wants the link re-opened any more; an open one stays open until it ends. True when it
    /// is not open, and so ends here.
    bool release();
    /// What comes over an open link can no longer be trusted. True when a new attempt has begun at
    /// once; false when the link counts as lost, as the device has never answered on it or nobody
    /// wants it.
    bool replace(qint64 nowUs);
    /// Somebody else who uses the link is having it replaced. False when nobody wants it here.
    bool replacedByOther(qint64 nowUs);
    /// The link was open and is gone.
    void lose(const QString& why, qint64 nowUs);
    /// The attempt has succeeded. True when this is news to whoever was told of a loss, or of
    /// nothing yet.
    bool opened();
    Failed attemptFailed(const QString& why, qint64 nowUs);
    /// Begins the next attempt if it is due. True when it has.
    bool retry(qint64 nowUs);
    /// A reply came: the device lives.
    void noteReply();
    /// A reply came that nobody waits for any more.
    void noteLateReply() { m_silences = 0; }
    /// A request got no reply. True when so many in a row got none that a new link is worth a try.
    bool noteSilence();

    /// The device has answered on this link.
    bool hasAnswered() const { return m_answered; }
    int silences() const { return m_silences; }
    /// What others who use the link have seen.
    void setLife(const LinkLife& life)
    {
        m_answered = life.hasAnswered;
        m_silences = life.silences;
    }

    bool isOpen() const { return m_state == State::Open; }
    /// Its users believe that it is open: it is, or is being replaced without a word to them.
    bool isReported() const { return m_reported; }
    bool isClosed() const { return m_state == State::Closed; }
    /// True when there has been a link since begin().
    bool wasOpen() const { return m_wasOpen; }
    bool isAttempting() const { return m_state == State::Opening || m_state == State::Reopening; }
    /// True while the outcome of an attempt is worth waiting for: the first one, and the first one
    /// after a loss.
    bool isAwaited() const;
    /// True while the link is down and nobody should wait for it.
    bool isDown() const { return isRetrying() && !isAwaited(); }
    /// When the attempt that runs has taken too long, or the next one begins; else never.
    qint64 dueUs() const { return m_dueUs; }
    bool isOverdue(qint64 nowUs) const { return isAttempting() && nowUs >= m_dueUs; }
    /// Why it is down, for a failure text.
    const QString& trouble() const { return m_trouble; }
    const Endpoint& endpoint() const { return m_endpoint; }

private:
    enum class State : quint8 { Closed, Opening, Open, Waiting, Reopening };

    bool isRetrying() const { return m_state == State::Waiting || m_state == State::Reopening; }
    void attempt(State state, qint64 nowUs);
    void retryLater(const QString& why, qint64 nowUs);

    qint64 m_dueUs = never;
    int m_silences = 0; ///< requests in a row that got no reply on this link
    int m_retries = 0; ///< attempts to re-open since the device last answered
    Backoff m_backoff;
    State m_state = State::Closed;
    bool m_wanted = false;
    bool m_reported = false; ///< the owner believes that it is open
    bool m_answered = false; ///< the device has answered on this link
    bool m_keepsTrying = false;
    bool m_wasOpen = false;
    Endpoint m_endpoint;
    QString m_trouble;
};
