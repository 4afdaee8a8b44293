#pragma once

#include "fixtures/fixture_plugin.h"

#include <plugin_management/d_orders.h>

#include <QtTest>

inline QVariantMap value(int number) { return {{QStringLiteral("value"), number}}; }

inline const QString ask = QStringLiteral("ask");

/// Runs the event loop until \a come; Qt's own waits sleep between their looks, which would be felt
/// over many orders. False when it has not come within some seconds.
template <typename Condition>
bool waitFor(Condition come)
{
    constexpr int limitMs = 8000;
    QTimer guard;
    guard.setSingleShot(true);
    guard.start(limitMs);
    while (!come() && guard.isActive()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return come();
}

/// A plug-in object with everything written down that its orders report.
class RecordedObject
{
public:
    RecordedObject() : plugin(new FixturePlugin)
    {
        plugin->initPluginCommands();
        DOrders* orders = plugin->orders();
        QObject::connect(orders, &DOrders::sigOrderResult, orders,
                         [this](quint64 id, const QString& name, const QVariant& v) {
                             results[id].append(name + QLatin1Char('=') + v.toString());
                         });
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

    quint64 connectTo(quint16 port, const QString& host = QStringLiteral("127.0.0.1"))
    {
        return start(QStringLiteral("connect"),
                     {{QStringLiteral("host"), host},
                      {QStringLiteral("port"), port},
                      {QStringLiteral("limit"), 8000}});
    }

    const DOrder& finish(quint64 id)
    {
        const bool over = waitFor([&] { return ends.value(id) > 0; });
        QTest::qVerify(over && ends.value(id) == 1, "ends once", "", __FILE__, __LINE__);
        return ended[id];
    }

    QVariant valueOf(quint64 id) { return finish(id).results.value(QStringLiteral("value")); }

    QHash<quint64, QStringList> results;
    QHash<quint64, DOrder> ended;
    QHash<quint64, int> ends;
    QScopedPointer<FixturePlugin> plugin; // goes first, and reports while it goes
};
