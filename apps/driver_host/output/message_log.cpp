#include "output/message_log.h"

#include "output/console.h"
#include "run/repeat_filter.h"
#include "terminal/live_terminal.h"

#include <QRegularExpression>

#include <mutex>

namespace {

struct LogState
{
    std::mutex mutex; // the log is called from the threads that look up host names, too
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
    const std::lock_guard locker(state.mutex);
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
    const std::lock_guard locker(logState().mutex);
    logState().verbose = verbose;
}

QString lastCritical()
{
    const std::lock_guard locker(logState().mutex);
    return logState().lastCritical;
}

void forgetCritical()
{
    const std::lock_guard locker(logState().mutex);
    logState().lastCritical.clear();
}

void flush()
{
    const std::lock_guard locker(logState().mutex);
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
