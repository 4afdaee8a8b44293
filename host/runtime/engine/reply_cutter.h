#pragma once

#include <plugin_management/reply_framing.h>

#include <QByteArray>

/// Joins the bytes that arrive and cuts the first frame off. Starts empty with every request.
class ReplyCutter
{
public:
    explicit ReplyCutter(const ReplyFraming& framing) : m_framing(&framing)
    {
        m_bytes.reserve(usualSize); // so that clear() keeps the memory
    }

    void setFraming(const ReplyFraming& framing) { m_framing = &framing; }

    void clear()
    {
        m_bytes.resize(0);
        m_frameSize = 0;
        m_implausible = false;
    }

    /// Adds bytes. True when a frame is whole, or when the header is implausible: then everything
    /// that came counts as the frame, so that the request fails at once instead of waiting.
    bool append(const char* data, int size)
    {
        m_bytes.append(data, size);
        const int length = m_framing->frameLength(m_bytes.constData(), m_bytes.size());
        m_implausible = length == ReplyFraming::Implausible;
        if (m_implausible) {
            m_frameSize = m_bytes.size();
            return true;
        }
        m_frameSize = length;
        return length != ReplyFraming::NeedMore && length <= m_bytes.size();
    }

    QByteArray frame() const
    {
        return m_frameSize == m_bytes.size() ? m_bytes : m_bytes.left(m_frameSize);
    }
    /// Bytes behind the frame: nothing asked for them.
    int surplus() const { return m_bytes.size() - m_frameSize; }
    bool implausible() const { return m_implausible; }

private:
    static constexpr int usualSize = 512;

    const ReplyFraming* m_framing;
    QByteArray m_bytes;
    int m_frameSize = 0;
    bool m_implausible = false;
};
