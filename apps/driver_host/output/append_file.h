#pragma once

#include <QString>

/// A file to which whole lines are added, by this program and perhaps by others at the same time:
/// whatever happens to the program, each result stands there with all its lines or not at all.
class AppendFile
{
public:
    AppendFile() = default;
    ~AppendFile();

    Q_DISABLE_COPY(AppendFile)

    /// Opens the file, or makes it with \a header as its first line. Answers why that cannot be, on
    /// one line: among others when it begins with another line.
    QString open(const QString& path, const QString& header);
    /// Adds lines, each with its line end, in one write. Answers why that failed; the file is as
    /// before then.
    QString append(const QString& lines);

private:
    QString failed(const char* what) const;

    QString m_path;
    int m_file = -1;
};
