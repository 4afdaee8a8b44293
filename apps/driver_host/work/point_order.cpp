#include "work/point_order.h"

#include "work/confirmation.h"

using Points::Role;
using Code = OrderFailure::Code;

namespace {

// Bits are written one by one, as modules take them so.
constexpr int writeCount = 1;

Points::RangeForm formOf(const PointPlan& plan)
{
    const int limit = plan.table.read ? plan.table.read->limit : 1;
    const bool bits = plan.table.holdsBits;
    return {limit, bits ? 1 : Points::wordCount(plan.format.type), bits, Points::Table::size};
}

} // namespace

PointOrder::PointOrder(DOrders& orders, const PointPlan& plan, QObject* parent)
    : QObject(parent), m_orders(orders), m_plan(plan), m_reading(formOf(plan), plan.range)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &PointOrder::tick);
    connect(&m_orders, &DOrders::sigOrderFinished, this, &PointOrder::takeFinished);
}

void PointOrder::start()
{
    if (m_plan.intervalMs > 0) {
        m_timer.start(m_plan.intervalMs);
    }
    begin();
}

void PointOrder::begin()
{
    m_busy = true;
    m_reading.restart();
    ask();
}

void PointOrder::tick()
{
    if (m_busy) {
        ++m_skipped;
    } else {
        begin();
    }
}

void PointOrder::stop()
{
    m_stopping = true;
    m_timer.stop();
    if (m_orderId == 0 || !m_orders.stop(m_orderId)) {
        end(OrderFailure::of(Code::Stopped, {}));
    }
}

void PointOrder::ask()
{
    QString refusal;
    m_orderId = m_orders.start(m_plan.command, request(), &refusal);
    if (m_orderId == 0) {
        m_timer.stop(); // it would be refused each time
        end(OrderFailure::of(Code::Usage, refusal));
    }
}

ParameterMap PointOrder::request() const
{
    const Points::CommandProfile& profile = m_plan.profile;
    ParameterMap map = m_plan.parameters;
    if (isRead()) {
        const Points::Span span = m_reading.next().value_or(m_plan.range);
        map.insert(profile.parameterOf(Role::Address), span.first);
        map.insert(profile.parameterOf(Role::Kind), m_plan.table.read->kind);
        map.insert(profile.parameterOf(Role::Count), span.count);
    } else {
        map.insert(profile.parameterOf(Role::Address), m_plan.range.first + m_written);
        map.insert(profile.parameterOf(Role::Kind), m_plan.table.writeOf(writeCount)->kind);
        map.insert(profile.parameterOf(Role::Data), int(m_plan.states.at(m_written)));
    }
    return map;
}

ParameterMap PointOrder::subject() const
{
    ParameterMap map = request();
    if (isRead()) {
        const Points::Span part = m_reading.next() ? m_reading.part() : m_plan.range;
        map.insert(m_plan.profile.parameterOf(Role::Address), part.first);
        map.insert(m_plan.profile.parameterOf(Role::Count), part.count);
    }
    return map;
}

void PointOrder::takeFinished(const DOrder& order)
{
    if (order.id != m_orderId || m_ended) {
        return;
    }
    m_orderId = 0;
    if (m_stopping || order.state == DOrder::State::Stopped) {
        end(OrderFailure::of(Code::Stopped, {}));
    } else if (order.state != DOrder::State::Done) {
        takeFailure(order.failure);
    } else if (isRead()) {
        takeReply(order.results);
    } else {
        takeWritten(order.results);
    }
}

void PointOrder::takeReply(const ParameterMap& results)
{
    if (!m_reading.take(results.value(m_plan.profile.values).toList())) {
        fail(OrderFailure::of(Code::BadReply,
                              QStringLiteral("the module's answer does not hold what was asked "
                                             "for")));
    } else if (m_reading.next()) {
        ask();
    } else {
        complete();
    }
}

void PointOrder::takeFailure(const OrderFailure& failure)
{
    const bool otherWay = isRead() && failure.code == Code::DeviceException && m_reading.refuse();
    if (otherWay) {
        ask();
    } else {
        fail(failure);
    }
}

void PointOrder::takeWritten(const ParameterMap& results)
{
    const OrderFailure failure = unconfirmed(m_plan.profile, results);
    if (failure) {
        fail(failure);
    } else if (++m_written < m_plan.states.size()) {
        ask();
    } else {
        emit result(m_plan.profile.confirmed ? m_plan.profile.confirmed->value : QVariantList());
        end({});
    }
}

void PointOrder::complete()
{
    QString misfit;
    const QVariant all = values(&misfit);
    if (!misfit.isEmpty()) {
        fail(OrderFailure::of(Code::BadReply, misfit));
        return;
    }
    m_busy = false;
    emit result(all); // which may stop it
    if (m_plan.intervalMs == 0) {
        end({});
    }
}

void PointOrder::fail(const OrderFailure& failure)
{
    if (m_plan.intervalMs == 0) {
        end(failure);
        return;
    }
    emit trouble(failure);
    m_busy = false;
}

void PointOrder::end(const OrderFailure& failure)
{
    if (!m_ended) {
        m_ended = true;
        m_timer.stop();
        emit finished(failure);
    }
}

QVariant PointOrder::values(QString* misfit) const
{
    const QVector<quint16>& items = m_reading.items();
    const int words = Points::wordCount(m_plan.format.type);
    QVariantList list;
    for (int i = 0; i + words <= items.size(); i += words) {
        const Points::Decoded decoded = Points::decode(items.mid(i, words), m_plan.format);
        if (!decoded.misfit.isEmpty() && misfit->isEmpty()) {
            *misfit = QStringLiteral("value %1 of %2 is no %3: %4")
                          .arg(i / words + 1)
                          .arg(items.size() / words)
                          .arg(Points::dataTypeName(m_plan.format.type), decoded.misfit);
        }
        list.append(decoded.value);
    }
    return list;
}
