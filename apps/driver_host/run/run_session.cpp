#include "run/run_session.h"

#include "cli/command_line.h"
#include "exit_codes.h"
#include "output/console.h"
#include "output/message_log.h"

#include <common/failure.h>

namespace {

constexpr int progressIntervalMs = 1000;

QString counted(quint64 count, const char* one, const char* many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}

} // namespace

RunSession::RunSession(int file, const Module& module, const Request& request, Console& console,
                       QObject* parent)
    : QObject(parent), m_console(console), m_runner(module, console, request.verbose), m_input(file)
{
    connect(&m_input, &OrderInput::lineRead, this, &RunSession::takeLine);
    connect(&m_input, &OrderInput::ended, this, &RunSession::endInput);
    connect(&m_runner, &Runner::roomAgain, this, [this] { m_input.setPaused(false); });
    connect(&m_runner, &Runner::ended, this, &RunSession::end);
    connect(&m_progress, &QTimer::timeout, this, &RunSession::showProgress);
    if (m_input.isRegularFile() && !request.verbose && m_console.canShowProgress()) {
        m_progress.start(progressIntervalMs);
    }
}

void RunSession::start() { m_input.setPaused(false); }

void RunSession::interrupt(int signal)
{
    m_signal = signal;
    m_input.close();
    m_runner.stopAll();
}

void RunSession::outputClosed()
{
    m_outputClosed = true;
    m_input.close();
    // Later, as the runner is in the middle of telling something.
    QMetaObject::invokeMethod(&m_runner, &Runner::endInput, Qt::QueuedConnection);
}

void RunSession::takeLine(const InputLine& line)
{
    m_runner.take(line);
    if (!m_runner.hasRoom()) {
        m_input.setPaused(true);
    }
}

void RunSession::endInput(const QString& error)
{
    m_inputFailed = !error.isEmpty();
    if (m_inputFailed) {
        m_console.error(failureLine(QStringLiteral("cannot read on: %1").arg(error)));
    }
    m_runner.endInput();
}

void RunSession::showProgress()
{
    const RunCounts& counts = m_runner.counts();
    m_console.showProgress(QStringLiteral("%1 orders read, %2 finished, %3 failed")
                               .arg(counts.orders)
                               .arg(counts.finished)
                               .arg(counts.failed));
}

void RunSession::end()
{
    m_progress.stop();
    MessageLog::flush();
    const RunCounts& counts = m_runner.counts();
    if (!m_outputClosed) {
        m_console.note(QStringLiteral("run: %1, %2 failed, %3")
                           .arg(counted(counts.orders, "order", "orders"),
                                QString::number(counts.failed),
                                counted(counts.wrongLines, "wrong line", "wrong lines")));
    }
    const bool allWell = counts.failed == 0 && counts.wrongLines == 0 && !m_inputFailed;
    const int exitCode = allWell ? ExitDone : ExitOrderFailed;
    emit ended(m_signal != 0 ? 128 + m_signal : exitCode);
}
