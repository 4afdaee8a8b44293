#include <common/failure.h>

#include <common/terminal_text.h>
#include <common/write_all.h>

#include <QCoreApplication>

#include <unistd.h>

QString failureLine(const QString& what)
{
    return QStringLiteral("%1: %2").arg(QCoreApplication::applicationName(), what);
}

void writeErrorLine(const QString& line)
{
    writeAll(STDERR_FILENO, withoutControls(line, QStringLiteral("\t")).toUtf8() + '\n');
}
