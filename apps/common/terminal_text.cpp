#include <common/terminal_text.h>

QString withoutControls(const QString& text, const QString& allowed)
{
    QString safe;
    safe.reserve(text.size());
    for (const QChar c : text) {
        const bool control = c.category() == QChar::Other_Control && !allowed.contains(c);
        safe += control ? QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'))
                        : QString(c);
    }
    return safe;
}
