#include "run/line_reader.h"

void LineReader::append(const char* bytes, int size)
{
    m_bytes.remove(0, m_begin);
    m_searched -= m_begin;
    m_begin = 0;
    m_bytes.append(bytes, size);
}

std::optional<InputLine> LineReader::next()
{
    const int end = m_bytes.indexOf('\n', m_searched);
    if (end >= 0) {
        return take(end, end + 1);
    }
    m_searched = m_bytes.size();
    const bool something = m_skipping || m_searched > m_begin;
    if (m_finished) {
        return something ? std::optional<InputLine>(take(m_searched, m_searched)) : std::nullopt;
    }
    if (m_skipping || m_searched - m_begin > m_limit) {
        m_skipping = true;
        m_begin = m_searched;
    }
    return std::nullopt;
}

InputLine LineReader::take(int end, int following)
{
    InputLine line;
    line.number = ++m_number;
    line.tooLong = m_skipping || end - m_begin > m_limit;
    if (!line.tooLong) {
        line.text = m_bytes.mid(m_begin, end - m_begin);
    }
    m_skipping = false;
    m_begin = following;
    m_searched = following;
    return line;
}
