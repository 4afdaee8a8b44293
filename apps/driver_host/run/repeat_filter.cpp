#include "run/repeat_filter.h"

QStringList RepeatFilter::add(const QString& line, const QString& key)
{
    if (key == m_key) {
        ++m_repeats;
        return {};
    }
    QStringList lines = flush();
    m_key = key;
    lines.append(line);
    return lines;
}

QStringList RepeatFilter::flush()
{
    QStringList lines;
    if (m_repeats > 0) {
        lines.append(QStringLiteral("(%1 more of the same %2)").arg(m_repeats).arg(m_subject));
    }
    m_repeats = 0;
    m_key.clear();
    return lines;
}
