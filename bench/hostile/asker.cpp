#include "asker.h"

#include <QThread>
#include <QTimer>

namespace {

using Answer = HostileDevice::Answer;

constexpr int ordersInFlight = 4;
constexpr int awayPauseMs = 100;
constexpr int briefPauseMs = 8; // longer than a stray copy takes
constexpr int surelyThereMs = 1000;

QString valueText(const QVariant& value)
{
    if (value.type() == QVariant::Map) {
        return QString::fromLatin1(
            value.toMap().value(QStringLiteral("info")).toByteArray().toHex());
    }
    QStringList texts;
    for (const QVariant& each : value.toList().mid(0, 6)) {
        texts << each.toString();
    }
    return texts.join(QLatin1Char(' '));
}

} // namespace

Asker::Asker(DAbstractPlugin* root, HostileDevice& device, Findings& findings, int seed)
    : m_device(device), m_findings(findings), m_draw(seed),
      m_plugin(dynamic_cast<DAbstractPlugin*>(root->createInstance(QUuid::createUuid())))
{
    m_plugin->initPluginCommands();
    m_orders = m_plugin->orders();
    connect(m_orders, &DOrders::sigOrderResult, this, &Asker::takeResult);
    connect(m_orders, &DOrders::sigOrderTrouble, this, &Asker::takeTrouble);
    connect(m_orders, &DOrders::sigOrderFinished, this, &Asker::takeEnd);
    m_connection = m_orders->start(QStringLiteral("connect"),
                                   {{QStringLiteral("host"), QStringLiteral("127.0.0.1")},
                                    {QStringLiteral("port"), m_device.port()},
                                    {QStringLiteral("timeout"), 1000}});
    for (int i = 0; i < ordersInFlight; ++i) {
        giveNext();
    }
}

void Asker::finish()
{
    m_finishing = true;
    const auto ids = m_given.keys();
    for (const quint64 id : ids) {
        if (m_given.value(id).repeats()) {
            m_orders->stop(id);
        }
    }
}

QStringList Asker::open() const
{
    QStringList texts;
    for (const Given& each : m_given) {
        texts << each.text();
    }
    return texts;
}

void Asker::giveNext()
{
    if (m_finishing) {
        return;
    }
    Given given = m_draw.order();
    given.since = m_device.answered();
    QString refusal;
    const quint64 id = m_orders->start(given.command, given.parameters(), &refusal);
    if (id == 0) {
        m_findings.fail("an order was refused", given.text() + QStringLiteral(": ") + refusal);
        return;
    }
    ++m_count;
    m_given.insert(id, given);
    if (given.repeats()) {
        stopLater(id, m_draw.below(500));
    } else if (m_draw.oneIn(20)) {
        stopLater(id, m_draw.below(20));
    }
}

void Asker::stopLater(quint64 id, int delayMs)
{
    QTimer::singleShot(delayMs, this, [this, id] {
        if (m_given.contains(id)) {
            m_orders->stop(id);
        }
    });
}

void Asker::takeResult(quint64 id, const QString& name, const QVariant& value)
{
    const auto it = m_given.find(id);
    if (it == m_given.end()) {
        if (id != m_connection) {
            m_findings.fail("a value came of an order that had ended", name);
        }
        return;
    }
    ++it->values;
    const Outcome outcome = judge(m_device, *it, value);
    if (outcome == Wrong) {
        m_findings.fail("a wrong value", it->text() + QStringLiteral(": ") + valueText(value));
    }
    count(*it, outcome);
    it->since = m_device.answered();
    if (m_draw.oneIn(64)) {
        QThread::msleep(briefPauseMs);
    }
}

void Asker::takeTrouble(quint64 id, const OrderFailure& failure)
{
    const auto it = m_given.find(id);
    if (it != m_given.end()) {
        count(*it, judgeFailure(*it, failure));
        it->since = m_device.answered();
    } else if (id != m_connection) {
        m_findings.fail("trouble came of an order that had ended", failure.text);
    }
}

Outcome Asker::judgeFailure(const Given& given, const OrderFailure& failure)
{
    using Code = OrderFailure::Code;
    switch (failure.code) {
    case Code::NotConnected:
        return NotConnected;
    case Code::DeviceException:
        return Exception;
    case Code::BadReply:
        return BadReply;
    case Code::Timeout:
        checkTimeout(given);
        return TimedOut;
    default:
        m_findings.fail("an order failed as none should",
                        given.text() + QStringLiteral(": ") + failure.text);
        return Stopped;
    }
}

void Asker::checkTimeout(const Given& given)
{
    const auto wasThere = [&](const Answer& answer) {
        return given.isAnsweredBy(answer) && answer.clean
            && answer.atMs + surelyThereMs < steadyMs();
    };
    if (given.isUnique() && m_device.newest(wasThere)) {
        m_findings.fail("an order timed out whose reply had long been there", given.text());
    }
}

void Asker::takeEnd(const DOrder& order)
{
    if (order.id == m_connection) {
        if (!m_finishing) {
            m_findings.fail("a connection was given up", order.failure.text);
        }
        return;
    }
    if (!m_given.contains(order.id)) {
        m_findings.fail("an order ended twice", order.command);
        return;
    }
    const Given given = m_given.take(order.id);
    checkValues(given, order);
    if (order.state == DOrder::State::Stopped) {
        count(given, Stopped);
    } else if (order.state == DOrder::State::Failed) {
        count(given, judgeFailure(given, order.failure));
    }
    // While the device is away orders fail at once: those would prove nothing.
    const bool away = order.failure.code == OrderFailure::Code::NotConnected;
    if (away || m_draw.oneIn(2)) {
        QTimer::singleShot(away ? awayPauseMs : 0, this, [this] { giveNext(); });
    } else {
        giveNext();
    }
}

void Asker::checkValues(const Given& given, const DOrder& order)
{
    const int wanted = order.state == DOrder::State::Done ? 1 : 0;
    if (given.values != wanted && !given.repeats()) {
        m_findings.fail(
            "an order ended with another number of values than one, or none if it failed",
            given.text());
    }
}

void Asker::count(const Given& given, Outcome outcome)
{
    const auto answer =
        m_device.newest([&](const Answer& each) { return given.isAnsweredBy(each); });
    const std::string kind = !answer ? "(no answer)" : answer->kind ? answer->kind->name : "(good)";
    m_findings.count(kind, outcome);
    const bool sure = given.command == QLatin1String("read") && given.isUnique();
    if (outcome == Right && sure && answer && answer->kind && answer->kind->isNeverGood) {
        m_findings.fail("a spoiled reply was taken for good",
                        given.text() + QStringLiteral(": ") + QString::fromStdString(kind));
    }
}
