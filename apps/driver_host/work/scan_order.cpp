#include "work/scan_order.h"

#include <points/address.h>

using Points::Role;
using Points::TableScan;
using Code = OrderFailure::Code;

namespace {

QVariantMap rangeMap(const Points::Span& range)
{
    return {{QStringLiteral("from"), range.first}, {QStringLiteral("to"), range.end() - 1}};
}

QString rangeLine(const Points::Table& table, const Points::Span& range)
{
    const QString line =
        QStringLiteral("%1  %2 to %3").arg(table.name).arg(range.first).arg(range.end() - 1);
    return table.digit.isEmpty() ? line
                                 : line
            + QStringLiteral("  (%1 to %2)")
                  .arg(Points::oldNumberText(table, range.first),
                       Points::oldNumberText(table, range.end() - 1));
}

} // namespace

ScanOrder::ScanOrder(DOrders& orders, const Points::Profile& profile, const ScanPlan& plan,
                     QObject* parent)
    : QObject(parent), m_orders(orders), m_profile(profile), m_plan(plan)
{
    m_pause.setSingleShot(true);
    m_pause.setInterval(plan.pauseMs);
    connect(&m_pause, &QTimer::timeout, this, &ScanOrder::ask);
    connect(&m_orders, &DOrders::sigOrderFinished, this, &ScanOrder::takeFinished);
}

void ScanOrder::stop()
{
    m_stopping = true;
    m_pause.stop();
    if (m_orderId == 0 || !m_orders.stop(m_orderId)) {
        end(OrderFailure::of(Code::Stopped, {}));
    }
}

void ScanOrder::ask()
{
    while (m_table < m_profile.tables.size()) {
        const auto item = table().read ? m_scan.next() : std::nullopt;
        if (item) {
            request(*item);
            return;
        }
        tellTable();
        ++m_table;
        m_scan = TableScan(Points::Table::size);
        m_why.clear();
    }
    end({});
}

void ScanOrder::request(int item)
{
    if (m_requests == m_plan.mostRequests) {
        tellTable();
        end(OrderFailure::of(
            Code::Usage,
            QStringLiteral("%1 requests were not enough; --requests allows more").arg(m_requests)));
        return;
    }
    m_request = m_plan.parameters;
    m_request.insert(command().parameterOf(Role::Address), item);
    m_request.insert(command().parameterOf(Role::Kind), table().read->kind);
    m_request.insert(command().parameterOf(Role::Count), 1);
    ++m_requests;
    emit progress(QStringLiteral("%1: asking for %2, request %3")
                      .arg(table().name)
                      .arg(item)
                      .arg(m_requests));
    QString refusal;
    m_orderId = m_orders.start(m_plan.command, m_request, &refusal);
    if (m_orderId == 0) {
        end(OrderFailure::of(Code::Usage, refusal));
    }
}

void ScanOrder::takeFinished(const DOrder& order)
{
    if (order.id != m_orderId || m_ended) {
        return;
    }
    m_orderId = 0;
    if (m_stopping || order.state == DOrder::State::Stopped) {
        end(OrderFailure::of(Code::Stopped, {}));
        return;
    }
    take(order.state == DOrder::State::Done ? OrderFailure() : order.failure);
}

void ScanOrder::take(const OrderFailure& failure)
{
    switch (failure.code) {
    case Code::None:
        m_scan.take(TableScan::Answer::Has);
        break;
    case Code::DeviceException:
        m_why = failure.text;
        m_scan.take(m_profile.absentTable.contains(failure.exceptionCode)
                        ? TableScan::Answer::NoTable
                        : TableScan::Answer::HasNot);
        break;
    case Code::Timeout:
    case Code::BadReply:
        m_why = failure.text;
        m_scan.take(TableScan::Answer::Silence);
        break;
    default:
        end(failure);
        return;
    }
    m_pause.start();
}

void ScanOrder::tellTable()
{
    QVariantList ranges;
    QStringList lines;
    for (const Points::Span& range : m_scan.found()) {
        ranges.append(rangeMap(range));
        lines.append(rangeLine(table(), range));
    }
    QVariantMap found{{QStringLiteral("ranges"), ranges}};
    if (ranges.isEmpty() || m_scan.isSilent()) {
        found.insert(QStringLiteral("reason"), m_why);
        lines.append(QStringLiteral("%1  %2: %3")
                         .arg(table().name,
                              QLatin1String(ranges.isEmpty() ? "nothing found" : "given up"),
                              m_why));
    }
    emit scanned(table().name, found, lines);
}

void ScanOrder::end(const OrderFailure& failure)
{
    if (!m_ended) {
        m_ended = true;
        m_pause.stop();
        emit finished(failure);
    }
}
