#include "output/append_file.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int mode = 0666; // less what the user's mask takes away

qint64 sizeOf(int file)
{
    struct stat status = {};
    return ::fstat(file, &status) == 0 ? qint64(status.st_size) : 0;
}

// What a program that was stopped by force, or another one, may have left.
bool endsWithinLine(int file, qint64 size)
{
    char last = '\n';
    return size > 0 && ::pread(file, &last, 1, size - 1) == 1 && last != '\n';
}

} // namespace

AppendFile::~AppendFile()
{
    if (m_file >= 0) {
        ::close(m_file);
    }
}

QString AppendFile::open(const QString& path, const QString& header)
{
    m_path = path;
    m_file =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, mode);
    if (m_file < 0) {
        return failed("cannot open");
    }
    const qint64 size = sizeOf(m_file);
    if (size == 0) {
        return append(header);
    }
    QByteArray first(header.toUtf8().size(), '\0');
    const bool isSame = ::pread(m_file, first.data(), std::size_t(first.size()), 0) == first.size()
        && first == header.toUtf8();
    if (!isSame) {
        return QStringLiteral("'%1' has not the columns %2; name another file")
            .arg(path, header.trimmed());
    }
    return endsWithinLine(m_file, size) ? append(QStringLiteral("\n")) : QString();
}

QString AppendFile::append(const QString& lines)
{
    const QByteArray bytes = lines.toUtf8();
    const qint64 size = sizeOf(m_file);
    ssize_t written = 0;
    do {
        written = ::write(m_file, bytes.constData(), std::size_t(bytes.size()));
    } while (written < 0 && errno == EINTR);
    if (written == bytes.size()) {
        return {};
    }
    QString why = written < 0 ? failed("cannot write to")
                              : QStringLiteral("cannot write to '%1': no room").arg(m_path);
    if (written > 0 && ::ftruncate(m_file, size) != 0) {
        why += QStringLiteral(", and its last line is torn");
    }
    return why;
}

QString AppendFile::failed(const char* what) const
{
    return QStringLiteral("%1 '%2': %3")
        .arg(QLatin1String(what), m_path, QString::fromLocal8Bit(std::strerror(errno)));
}
