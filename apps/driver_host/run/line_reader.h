#pragma once

#include <QByteArray>

#include <optional>

/// One line of input, without its line end.
struct InputLine
{
    quint64 number = 0; ///< from 1
    QByteArray text; ///< empty when the line is too long
    bool tooLong = false;
};

/// Cuts bytes, in whatever pieces they come, into lines. A line that is too long is skipped to its
/// end, so that no input can fill the memory.
class LineReader
{
public:
    static constexpr int defaultLimit = 1024 * 1024;

    explicit LineReader(int limit = defaultLimit) : m_limit(limit) { }

    void append(const char* bytes, int size);
    /// No more bytes will come: what is left over is a line as well.
    void finish() { m_finished = true; }
    /// The next line; none before more bytes have come, or after the last one.
    std::optional<InputLine> next();

private:
    InputLine take(int end, int following);

    int m_limit;
    QByteArray m_bytes;
    int m_begin = 0; // of the line in m_bytes
    int m_searched = 0; // up to here there is no line end
    quint64 m_number = 0;
    bool m_skipping = false; // the beginning of this line has been dropped
    bool m_finished = false;
};
