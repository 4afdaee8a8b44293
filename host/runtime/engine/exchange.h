#pragma once

#include <runtime/engine/reply_cutter.h>

#include <plugin_management/order_failure.h>

#include <array>
#include <limits>

/// One request and its reply: what left, what has come of the reply, what it is worth, and until
/// when it is waited for. Times are microseconds.
class Exchange
{
public:
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    Exchange() : m_cutter(mbapFraming()) { }

    void setFraming(const ReplyFraming& framing);
    const ReplyFraming& framing() const { return *m_framing; }
    /// The unit that is really asked, whatever the frames say; -1: the one that they name.
    void setUnit(int unit) { m_unit = unit; }
    int unit() const { return m_unit; }

    // While the worker's function runs.
    void begin(qint64 nowUs);
    void expectReply() { m_replyExpected = true; }
    void requestLeft(const char* data, int size);
    /// The function has taken bytes that waited before it wrote anything: nothing asked for them.
    void drained(int size) { m_drained += size; }

    // From then on.
    void waitFor(int limitMs) { m_limitUs = m_calledUs + qint64{limitMs} * 1000; }
    /// Adds bytes of the reply. True when it is whole, or can never become one.
    bool append(const char* data, int size) { return m_isWhole = m_cutter.append(data, size); }
    void end() { m_limitUs = never; }

    bool replyExpected() const { return m_replyExpected; }
    bool hasLeft() const { return m_requestHeadSize > 0; }
    /// No reply to it can come any more.
    bool isOver() const { return !hasLeft() || m_isWhole; }
    int drainedBytes() const { return m_drained; }
    bool isWhole() const { return m_isWhole; }
    qint64 calledUs() const { return m_calledUs; } ///< a little before the write
    qint64 limitUs() const { return m_limitUs; }
    QByteArray frame() const { return m_cutter.frame(); }
    /// Bytes behind the reply: nothing asked for them.
    int surplus() const { return m_cutter.surplus(); }

    /// False when the reply cannot be one to the request, whatever the reply hook says.
    bool fits() const;
    /// What is wrong with the reply, of which the hook said \a judgement; None when all is well.
    OrderFailure verdict(const ParameterMap& judgement) const;
    /// A failure that names the unit that was asked, if one was.
    OrderFailure failure(OrderFailure::Code code, const QString& text) const;

private:
    int requestUnit() const;
    OrderFailure misfit() const;

    // What each request touches, together.
    qint64 m_calledUs = 0;
    qint64 m_limitUs = never;
    int m_drained = 0;
    int m_requestHeadSize = 0;
    std::array<char, ReplyFraming::requestHeadSize> m_requestHead{};
    bool m_replyExpected = false;
    bool m_isWhole = false;
    ReplyCutter m_cutter;
    const ReplyFraming* m_framing = &mbapFraming();
    int m_unit = -1;
};
