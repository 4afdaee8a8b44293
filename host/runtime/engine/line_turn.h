#pragma once

#include <runtime/engine/backoff.h>

#include <QtGlobal>

/// A worker's part of a connection that it shares with others: the turn to ask, which is one
/// request long, and the pauses of a device behind it that does not answer, so that it does not
/// hold the others up for ever. Times are microseconds.
class LineTurn
{
public:
    explicit LineTurn(unsigned seed) : m_backoff(seed) { }

    void setShared(bool isShared)
    {
        m_isShared = isShared;
        leave();
        forgetSilence();
    }
    bool isShared() const { return m_isShared; }

    bool isHeld() const { return m_isHeld; }
    bool isAsked() const { return m_isAsked; }
    void ask() { m_isAsked = true; }
    void come()
    {
        m_isHeld = true;
        m_isAsked = false;
    }
    void giveBack() { m_isHeld = false; }
    /// The worker is off the connection.
    void leave() { m_isHeld = m_isAsked = false; }

    // What comes of a request. True when people should hear of it.
    bool noteSilence(qint64 nowUs);
    bool noteReply() { return forgetSilence(); }
    bool forgetSilence();

    bool isPaused(qint64 nowUs) const { return nowUs < m_pausedUntilUs; }
    /// When the device may be asked again; in the past while it may.
    qint64 pausedUntilUs() const { return m_pausedUntilUs; }
    int silences() const { return m_silences; }

private:
    static constexpr int patience = 3; ///< requests without a reply in a row, before it pauses

    bool m_isShared = false;
    bool m_isHeld = false;
    bool m_isAsked = false;
    int m_silences = 0; ///< in a row
    qint64 m_pausedUntilUs = 0;
    Backoff m_backoff;
};
