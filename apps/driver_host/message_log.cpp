#include "message_log.h"

#include "console.h"
#include "live_terminal.h"
#include "repeat_filter.h"

#include <QMutex>
#include <QRegularExpression>

namespace {

struct LogState
{
    QMutex mutex; // the log is called from the threads that look up host names, too
    RepeatFilter filter{QStringLiteral("log line")};
    QString lastCritical;
    bool verbose = false;
};

LogState& logState()
{
    static LogState state;
    return state;
}

void print(const QStringList& lines)
{
    for (const QString& line : lines) {
        writeStandardError(line);
    }
}

void handleMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    Q_UNUSED(context)
    LogState& state = logState();
    const QMutexLocker locker(&state.mutex);
    const QString message = MessageLog::criticalMessage(text);
    if (type == QtCriticalMsg) {
        state.lastCritical = message;
    }
    if (state.verbose || type == QtWarningMsg || type == QtFatalMsg) {
        print(state.filter.add(text.trimmed(), message));
    }
    if (type == QtFatalMsg) {
        LiveTerminal::printHeldBack();
    }
}

} // namespace

namespace MessageLog {

void install() { qInstallMessageHandler(handleMessage); }

void setVerbose(bool verbose)
{
    const QMutexLocker locker(&logState().mutex);
    logState().verbose = verbose;
}

QString lastCritical()
{
    const QMutexLocker locker(&logState().mutex);
    return logState().lastCritical;
}

void forgetCritical()
{
    const QMutexLocker locker(&logState().mutex);
    logState().lastCritical.clear();
}

void flush()
{
    const QMutexLocker locker(&logState().mutex);
    print(logState().filter.flush());
}

QString criticalMessage(const QString& line)
{
    const QLatin1String separator(";\t");
    static const QRegularExpression lead(QStringLiteral("^(ERROR: )?(OrderId = \\d+ *, *)?"));
    const int at = line.lastIndexOf(separator);
    const QString message = at < 0 ? line : line.mid(at + separator.size());
    return message.simplified().remove(lead);
}

} // namespace MessageLog
