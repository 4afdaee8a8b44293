#include "recorded_object.h"
#include "scripted_device.h"

#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>

using Code = OrderFailure::Code;
using Step = ScriptedDevice::Step;
Q_DECLARE_METATYPE(QList<ScriptedDevice::Step>)

/// What must hold over many orders, many workers and any sequence of events.
class EnduranceTest : public QObject
{
    Q_OBJECT

private slots:
    void noOrderEndsWithAnothersValue_data();
    void noOrderEndsWithAnothersValue();
    void aListenSurvivesARebootOfTheDevice();
    void aHundredWorkersComeBackWithoutAStorm();
    void everyOrderOfAStormEndsOnce();
};

void EnduranceTest::noOrderEndsWithAnothersValue_data()
{
    QTest::addColumn<bool>("transactionIds");
    QTest::addColumn<QList<Step>>("faults");
    QTest::newRow("by a new connection") << false << QList<Step>{Step::Late};
    QTest::newRow("by ids") << true
                            << QList<Step>{Step::Late, Step::Twice, Step::OtherId, Step::OtherUnit};
}

void EnduranceTest::noOrderEndsWithAnothersValue()
{
    QFETCH(bool, transactionIds);
    QFETCH(QList<Step>, faults);
    constexpr int orders = 4000; // simulated plants try millions
    constexpr int limitMs = 8;
    QRandomGenerator random(20240917);
    ScriptedDevice device;
    device.beforeStep = [&] {
        if (random.bounded(10) == 0) {
            device.script.prepend(faults.at(random.bounded(faults.size())));
            device.lateMs = limitMs + 1 + random.bounded(3 * limitMs);
        }
    };
    RecordedObject object;
    LinkOptions options;
    options.transactionIds = transactionIds;
    options.unit = transactionIds ? 9 : -1;
    QVERIFY(object.plugin->setLinkOptions(options));
    object.connectTo(device.port());
    bool connected = true;
    QObject::connect(object.plugin->worker(), &DAbstractWorker::sigStatusChanged, this,
                     [&connected](bool up) { connected = up; });
    int right = 0;
    for (int i = 1; i <= orders; ++i) {
        const quint64 id = object.start(ask, value(i, limitMs));
        const DOrder order = object.finish(id);
        if (order.state == DOrder::State::Done) {
            QCOMPARE(order.results.value(QStringLiteral("value")), QVariant(i));
            ++right;
        }
        // Else the next one would fail at once. On a slow machine several in a row may be late, and
        // the delay before the next attempt grows to 22 s.
        QVERIFY(connected || waitFor([&] { return connected; }, 30000));
        object.forget(id);
    }
    const WorkerStatistics statistics = object.statistics();
    qInfo("%d answered, %llu time-outs, %llu connections", right,
          static_cast<unsigned long long>(statistics.timeouts),
          static_cast<unsigned long long>(statistics.reconnects + 1));
    QVERIFY(right > orders / 2);
    QVERIFY(statistics.timeouts > orders / 20);
    QVERIFY(!transactionIds || statistics.reconnects < statistics.timeouts / 20);
    QCOMPARE(device.mostConnections, 1);
}

void EnduranceTest::aListenSurvivesARebootOfTheDevice()
{
    ScriptedDevice device;
    const quint16 port = device.port();
    RecordedObject object;
    const quint64 connection = object.connectTo(port);
    device.numbersReplies = true;
    const quint64 listen = object.start(watch, repeating(4, 5));
    for (int reboot = 0; reboot < 2; ++reboot) {
        const int before = object.results.value(listen).size();
        QVERIFY(waitFor([&] { return object.results.value(listen).size() > before + 3; }));
        device.powerOff();
        QVERIFY(waitFor([&] { return object.results.value(connection).size() == 2 + 2 * reboot; }));
        QVERIFY(device.start(port));
        // The first attempt after a loss is worth waiting for.
        QVERIFY(object.valueOf(object.start(ask, value(7, 1000))).toInt() > 0);
    }
    QCOMPARE(object.statistics().reconnects, 2u);
    const int before = object.results.value(listen).size();
    QVERIFY(waitFor([&] { return object.results.value(listen).size() > before + 3; }));
    const QString up = QStringLiteral("connected=true");
    const QString down = QStringLiteral("disconnected=true");
    QCOMPARE(object.results.value(connection), (QStringList{up, down, up, down, up}));
    int last = 0;
    for (const QString& result : object.results.value(listen)) { // none twice, none out of order
        const int number = result.section(QLatin1Char('='), 1).toInt();
        QVERIFY(number > last && number <= device.requests.size());
        last = number;
    }
    QCOMPARE(device.mostConnections, 1);
    QVERIFY(!object.ends.contains(listen) && !object.ends.contains(connection));
}

void EnduranceTest::aHundredWorkersComeBackWithoutAStorm()
{
    constexpr int workers = 100;
    ScriptedDevice device;
    std::vector<std::unique_ptr<RecordedObject>> objects;
    int connected = 0;
    for (int i = 1; i <= workers; ++i) {
        objects.push_back(std::make_unique<RecordedObject>());
        RecordedObject& object = *objects.back();
        // Every worker knows the device under an address of its own: that tells who tries.
        object.connectTo(device.port(), 2000, QStringLiteral("127.0.1.%1").arg(i));
        QObject::connect(object.plugin->worker(), &DAbstractWorker::sigStatusChanged, this,
                         [&connected](bool up) { connected += up ? 1 : -1; });
    }
    QVERIFY(waitFor([&] { return connected == workers; }));
    device.attempts.clear();
    device.closeOnAccept = true; // gone, but still counting who knocks
    QElapsedTimer clock;
    clock.start();
    device.clock = &clock;
    device.closeAll();
    QVERIFY(waitFor([&] { return clock.elapsed() > 5000; }));
    device.closeOnAccept = false;
    const qint64 backMs = clock.elapsed();
    QVERIFY(waitFor([&] { return connected == workers; }, 25000));
    qInfo("all back after %lld ms", clock.elapsed() - backMs);

    QHash<QString, qint64> lastTry;
    QList<qint64> late;
    for (const ScriptedDevice::Attempt& attempt : qAsConst(device.attempts)) {
        if (lastTry.contains(attempt.address)) {
            QVERIFY(attempt.atMs - lastTry.value(attempt.address) >= 100);
        }
        lastTry.insert(attempt.address, attempt.atMs);
        if (attempt.atMs > 1000) {
            late.append(attempt.atMs);
        }
    }
    QCOMPARE(lastTry.size(), workers);
    QVERIFY(late.size() > workers); // else the next check would look at nothing
    for (int i = 0; i + 30 < late.size(); ++i) {
        QVERIFY(late.at(i + 30) - late.at(i) >= 100);
    }
}

void EnduranceTest::everyOrderOfAStormEndsOnce()
{
    constexpr int rounds = 1000;
    const QList<Step> steps{Step::Answer,        Step::Never,      Step::Twice,
                            Step::OtherFunction, Step::Exception2, Step::CloseInstead,
                            Step::HalfThenClose, Step::CloseAfter, Step::ByteByByte,
                            Step::Late};
    QRandomGenerator random(7);
    int orders = 0;
    for (int round = 0; round < rounds; ++round) {
        ScriptedDevice device;
        device.lateMs = 2;
        RecordedObject object(random.bounded(2) * 3);
        QList<quint64> ids{object.connectTo(device.port())};
        const int events = random.bounded(4, 24);
        for (int i = 0; i < events && object.plugin; ++i) {
            device.script = {steps.at(random.bounded(steps.size()))};
            switch (random.bounded(8)) {
            case 0:
                object.plugin->orders()->stop(ids.at(random.bounded(ids.size())));
                break;
            case 1:
                device.closeAll();
                break;
            case 2:
                ids.append(object.connectTo(device.port()));
                break;
            case 3:
                ids.append(object.start(watch, repeating(i, random.bounded(1, 4), 2)));
                break;
            case 4:
                waitFor([] { return false; }, 1);
                break;
            default:
                ids.append(object.start(ask, value(i, random.bounded(1, 4))));
                break;
            }
            QCoreApplication::processEvents();
        }
        if (random.bounded(2) == 0) {
            for (const quint64 id : qAsConst(ids)) {
                object.plugin->orders()->stop(id);
            }
            QVERIFY(waitFor([&] { return object.ends.size() == ids.size(); }));
        }
        object.plugin.reset(); // ends what still runs
        for (const quint64 id : qAsConst(ids)) {
            QCOMPARE(object.ends.value(id), 1);
        }
        orders += ids.size();
    }
    qInfo("%d orders", orders);
}

QTEST_GUILESS_MAIN(EnduranceTest)

#include "tst_endurance.moc"
