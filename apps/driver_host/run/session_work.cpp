#include "run/session.h"

// What of a session takes more than one order of the module, and how its results and failures are
// told.

#include "exit_codes.h"
#include "output/append_file.h"
#include "output/console.h"
#include "output/failure_text.h"
#include "output/message_log.h"
#include "output/poll_statistics.h"
#include "work/confirmation.h"
#include "work/point_order.h"
#include "work/scan_order.h"

#include <common/failure.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>

using Code = OrderFailure::Code;

namespace {

QDateTime now() { return QDateTime::currentDateTimeUtc(); }

int exitCodeOf(Code code)
{
    return code == Code::NotConnected ? ExitNoConnection : ExitOrderFailed;
}

} // namespace

void Session::startPoints()
{
    MessageLog::forgetCritical();
    m_points = std::make_unique<PointOrder>(*m_device.orders(), *m_request.points);
    const auto& command = m_request.points->profile;
    const QString name = command.confirmed ? command.confirmed->result : command.values;
    connect(m_points.get(), &PointOrder::result, this, [this, name](const QVariant& values) {
        m_lastResults = {{name, values}};
        showResult(name, values);
    });
    connect(m_points.get(), &PointOrder::trouble, this, [this](const OrderFailure& failure) {
        showTrouble(failure, failureText(m_request.command, failure, workSubject(failure)));
    });
    connect(m_points.get(), &PointOrder::finished, this, &Session::workFinished);
    m_points->start();
}

void Session::startScan()
{
    m_scan = std::make_unique<ScanOrder>(*m_device.orders(), m_profile, *m_request.scan);
    connect(m_scan.get(), &ScanOrder::scanned, this,
            [this](const QString& table, const QVariantMap& found, const QStringList& lines) {
                m_lastResults.insert(table, found);
                const bool asText = m_request.format == Format::Text;
                m_console.write(asText ? lines.join(QLatin1Char('\n')) + QLatin1Char('\n')
                                       : m_renderer->result(now(), table, found));
            });
    connect(m_scan.get(), &ScanOrder::progress, this, [this](const QString& text) {
        if (m_console.canShowProgress(true)) {
            m_console.showProgress(text);
        }
    });
    connect(m_scan.get(), &ScanOrder::finished, this, &Session::workFinished);
    m_scan->start();
}

void Session::stopOrder()
{
    if (m_scan) {
        m_scan->stop();
    } else if (m_points) {
        m_points->stop();
    } else {
        m_device.orders()->stop(m_orderId);
    }
}

void Session::workFinished(const OrderFailure& failure)
{
    const bool stopped = failure.code == Code::Stopped;
    if (stopped && m_recurrent) {
        takeStatistics();
    }
    if (!failure || (stopped && m_recurrent)) {
        endDone(m_lastResults);
    } else if (stopped) {
        showStopped();
    } else {
        m_exitCode = exitCodeOf(failure.code);
        fail(failure, failureText(m_request.command, failure, workSubject(failure)));
    }
    close();
}

void Session::endDone(const ParameterMap& results)
{
    const Points::CommandProfile* profile = m_profile.command(m_request.command);
    const OrderFailure failure =
        profile != nullptr ? unconfirmed(*profile, results) : OrderFailure();
    if (failure) {
        m_exitCode = exitCodeOf(failure.code);
        fail(failure,
             failureText(m_request.command, failure, subject(m_request.parameters, failure)));
    } else {
        m_console.write(m_renderer->finished(now(), true, results));
    }
}

// Before the disconnect counts as well.
void Session::takeStatistics()
{
    WorkerStatistics after = workerStatistics();
    after.ticksSkipped += m_points ? m_points->skippedCount() : 0;
    m_statistics = QStringLiteral("%1: %2").arg(m_request.command,
                                                pollStatistics(m_before, after, m_clock.elapsed()));
}

bool Session::hasAnswered() const
{
    const WorkerStatistics counted = workerStatistics();
    return counted.done + counted.exceptions + counted.badReplies > 0;
}

FailureSubject Session::subject(const ParameterMap& parameters, const OrderFailure& failure) const
{
    FailureSubject subject = subjectOf(m_profile, m_request.command, parameters, failure);
    subject.moduleMessage = MessageLog::lastCritical();
    subject.hasAnswered = hasAnswered();
    if (m_request.places && !m_request.places->labels.isEmpty() && m_request.isOldNumber) {
        subject.place = m_request.places->labels.first();
        subject.hint.clear();
    }
    return subject;
}

FailureSubject Session::workSubject(const OrderFailure& failure) const
{
    if (m_scan) {
        FailureSubject about =
            subjectOf(m_profile, m_request.scan->command, m_scan->subject(), failure);
        about.hasAnswered = hasAnswered();
        return about;
    }
    FailureSubject about = subject(m_points->subject(), failure);
    if (m_points->writtenCount() > 0) {
        about.hint = QStringLiteral("%1 of %2 were written before")
                         .arg(m_points->writtenCount())
                         .arg(m_request.points->states.size());
    }
    return about;
}

bool Session::openFile()
{
    if (m_request.append.isEmpty()) {
        return true;
    }
    m_file = std::make_unique<AppendFile>();
    m_rows = makeCsvRows(m_rendered);
    const QString error = m_file->open(m_request.append, csvHeader(m_rendered));
    if (!error.isEmpty()) {
        m_console.error(failureLine(QLatin1String("--append: ") + error));
    }
    return error.isEmpty();
}

void Session::addToFile(const QDateTime& time, const QString& name, const QVariant& value)
{
    const QString error = m_file ? m_file->append(m_rows->result(time, name, value)) : QString();
    if (!error.isEmpty()) {
        m_file.reset();
        m_console.error(failureLine(error));
        stop(ExitOrderFailed);
    }
}

void Session::tellConnection(bool connected)
{
    const QString hint = lossHint(m_profile, m_loss);
    const QString text = connected
        ? QStringLiteral("connected again")
        : QStringLiteral("connection lost (%1), retrying").arg(m_loss.text)
            + (hint.isEmpty() ? hint : QLatin1String("; ") + hint);
    m_console.write(m_renderer->connection(now(), connected, text));
    m_console.note(text);
}
