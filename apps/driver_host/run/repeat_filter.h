#pragma once

#include <QString>
#include <QStringList>

/// Keeps a line that comes again and again from flooding a terminal: it is shown once, and its
/// repeats are counted until another line comes or the count is asked for.
class RepeatFilter
{
public:
    /// \a subject is what the lines are, in the singular, such as "failure".
    explicit RepeatFilter(const QString& subject) : m_subject(subject) { }

    /// What to print now that \a line came: the count of the line before it, and \a line when it is
    /// a new one. \a key tells whether two lines are the same.
    QStringList add(const QString& line, const QString& key);
    /// The count of repeats that nothing has told yet; the same line then counts as a new one.
    QStringList flush();

private:
    QString m_subject;
    QString m_key;
    int m_repeats = 0;
};
