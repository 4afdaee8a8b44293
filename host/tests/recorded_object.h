#pragma once

#include "fixtures/fixture_plugin.h"

#include <plugin_management/d_orders.h>

#include <QtTest>

inline QVariantMap value(int number) { return {{QStringLiteral("value"), number}}; }

/// The same with a time limit of its own.
inline QVariantMap value(int number, int limitMs)
{
    return {{QStringLiteral("value"), number}, {QStringLiteral("limit"), limitMs}};
}

/// Parameters of "watch" that make it ask again and again.
inline QVariantMap repeating(int number, int intervalMs, int limitMs = 60)
{
    QVariantMap parameters = value(number, limitMs);
    parameters.insert(QStringLiteral("function"), QStringLiteral("ask"));
    parameters.insert(QStringLiteral("recurrent"), true);
    parameters.insert(QStringLiteral("recurrentInterval"), intervalMs);
    return parameters;
}

inline const QString ask = QStringLiteral("ask");
inline const QString watch = QStringLiteral("watch");

/// Runs the event loop until \a come; Qt's own waits sleep between their looks, which would be felt
/// over many orders. False when it has not come within \a limitMs.
template <typename Condition>
bool waitFor(Condition come, int limitMs = 8000)
{
    QTimer guard;
    guard.setSingleShot(true);
    guard.start(limitMs);
    while (!come() && guard.isActive()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return come();
}

/// A plug-in object with everything written down that its orders report.
class RecordedObject
{
public:
    explicit RecordedObject(int keepAliveMs = 0) : plugin(new FixturePlugin(keepAliveMs))
    {
        plugin->initPluginCommands();
        DOrders* orders = plugin->orders();
        QObject::connect(orders, &DOrders::sigOrderResult, orders,
                         [this](quint64 id, const QString& name, const QVariant& v) {
                             results[id].append(name + QLatin1Char('=') + v.toString());
                         });
        QObject::connect(
            orders, &DOrders::sigOrderTrouble, orders,
            [this](quint64 id, const OrderFailure& failure) { troubles[id].append(failure.code); });
        QObject::connect(orders, &DOrders::sigOrderFinished, orders, [this](const DOrder& order) {
            ended.insert(order.id, order);
            ++ends[order.id];
        });
    }

    quint64 start(const QString& command, const QVariantMap& parameters = {})
    {
        QString refusal;
        const quint64 id = plugin->orders()->start(command, parameters, &refusal);
        QTest::qVerify(id != 0 && !ends.contains(id), "start", qPrintable(refusal), __FILE__,
                       __LINE__);
        return id;
    }

    quint64 connectTo(quint16 port, int limitMs = 1000,
                      const QString& host = QStringLiteral("127.0.0.1"))
    {
        return start(QStringLiteral("connect"),
                     {{QStringLiteral("host"), host},
                      {QStringLiteral("port"), port},
                      {QStringLiteral("limit"), limitMs}});
    }

    const DOrder& finish(quint64 id)
    {
        const bool over = waitFor([&] { return ends.value(id) > 0; });
        QTest::qVerify(over && ends.value(id) == 1, "ends once", "", __FILE__, __LINE__);
        return ended[id];
    }

    QVariant valueOf(quint64 id) { return finish(id).results.value(QStringLiteral("value")); }

    void forget(quint64 id)
    {
        results.remove(id);
        troubles.remove(id);
        ended.remove(id);
        ends.remove(id);
    }

    WorkerStatistics statistics() const { return plugin->worker()->statistics(); }

    QHash<quint64, QStringList> results;
    QHash<quint64, QList<OrderFailure::Code>> troubles;
    QHash<quint64, DOrder> ended;
    QHash<quint64, int> ends;
    QScopedPointer<FixturePlugin> plugin; // goes first, and reports while it goes
};
