#include "order_bench.h"
#include "scripted_device.h"


#include <QSignalSpy>
#include <QtTest>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>

using Code = OrderFailure::Code;
using Step = ScriptedDevice::Step;
Q_DECLARE_METATYPE(OrderFailure::Code)
Q_DECLARE_METATYPE(QList<ScriptedDevice::Step>)

namespace {

const QString connectedTrue = QStringLiteral("connected=true");

} // namespace

class RuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    void replies_data();
    void replies();
    void aLateReplyAnswersNoOtherOrder();
    void aStoppedOrdersReplyAnswersNoOtherOrder();
    void noOrderStopsAnothersInstruction();
    void unaskedBytesAnswerNothing();
    void anUnsentOrderWaitsForTheNewConnection();
    void refusals_data();
    void refusals();
    void nothingIsReportedBeforeStartReturns();
    void whatFailsAtOnce_data();
    void whatFailsAtOnce();
    void theQueueIsBounded();
    void connectFails_data();
    void connectFails();
    void stoppedConnectEndsAfterDisconnect();
    void disconnectDoesNotWaitForAReplyThatNobodyWants();
    void ordersFailAtOnceWhileTheDeviceIsGone();
    void repetitionsGoOn();
    void ticksDoNotPileUpAndOneShotsGoFirst();
    void theLinkIsSetUpForTheField();
    void keepAliveFindsADeadDevice();
    void keepAliveTakesAnyReplyAsLife();
    void destructionEndsEveryOrderOnce();
    void destructionInsideAReport_data();
    void destructionInsideAReport();
    void aLoopInsideAReportStopsNobody_data();
    void aLoopInsideAReportStopsNobody();
};

void RuntimeTest::replies_data()
{
    QTest::addColumn<QList<Step>>("script");
    QTest::addColumn<Code>("code"); // None: the value comes back
    QTest::addColumn<int>("connections"); // how many the device has seen after the next order
    using S = ScriptedDevice;
    QTest::newRow("whole") << QList<Step>{S::Answer} << Code::None << 1;
    QTest::newRow("byte by byte") << QList<Step>{S::ByteByByte} << Code::None << 1;
    QTest::newRow("in halves") << QList<Step>{S::HalfThenRest} << Code::None << 1;
    QTest::newRow("twice at once") << QList<Step>{S::Twice} << Code::BadReply << 2;
    QTest::newRow("close after it") << QList<Step>{S::CloseAfter} << Code::None << 2;
    QTest::newRow("exception") << QList<Step>{S::Exception2} << Code::DeviceException << 1;
    QTest::newRow("never") << QList<Step>{S::Never} << Code::Timeout << 2;
    QTest::newRow("other function") << QList<Step>{S::OtherFunction} << Code::BadReply << 2;
    QTest::newRow("other unit") << QList<Step>{S::OtherUnit} << Code::None << 1;
    QTest::newRow("wrong length") << QList<Step>{S::WrongLength} << Code::BadReply << 2;
    QTest::newRow("reads no more") << QList<Step>{S::FullStop} << Code::Timeout << 2;
    QTest::newRow("implausible header") << QList<Step>{S::ImplausibleHeader} << Code::BadReply << 2;
    QTest::newRow("close instead") << QList<Step>{S::CloseInstead} << Code::NotConnected << 2;
    QTest::newRow("half, then close") << QList<Step>{S::HalfThenClose} << Code::NotConnected << 2;
}

void RuntimeTest::replies()
{
    QFETCH(QList<Step>, script);
    QFETCH(Code, code);
    ScriptedDevice device;
    Bench bench;
    const quint64 connection = bench.connectTo(device.port());
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    device.script = script;
    const quint64 id = bench.start(ask, value(258));
    QCOMPARE(bench.finish(id).failure.code, code);
    if (code == Code::None) {
        QCOMPARE(bench.valueOf(id), QVariant(258));
    }
    if (code == Code::DeviceException) {
        QCOMPARE(bench.finish(id).failure.exceptionCode, 2);
        QCOMPARE(bench.finish(id).failure.unitId, 0);
        QVERIFY(bench.finish(id).failure.text.contains(QLatin1String("illegal data address")));
    }
    QTRY_COMPARE(bench.valueOf(bench.start(ask, value(772))), QVariant(772));
    QTEST(device.connections, "connections");
    QCOMPARE(device.mostConnections, 1);
    QCOMPARE(bench.ends.value(connection), 0);
}

void RuntimeTest::aLateReplyAnswersNoOtherOrder()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    device.lateMs = 70; // ten more than the orders' limit, and so in the middle of the next one's
    device.script = {Step::Answer, Step::Late, Step::Late, Step::Answer, Step::Late, Step::Answer};
    QVariantList values;
    for (int i = 1; i <= 6; ++i) {
        values.append(bench.valueOf(bench.start(ask, value(i))));
    }
    QCOMPARE(values, (QVariantList{1, {}, {}, 4, {}, 6}));
    QCOMPARE(bench.statistics().timeouts, 3u);
}

void RuntimeTest::aStoppedOrdersReplyAnswersNoOtherOrder()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    device.lateMs = 20;
    device.script = {Step::Late};
    const quint64 stopped = bench.start(ask, value(1));
    QTRY_COMPARE(device.requests.size(), 1);
    QVERIFY(bench.plugin->orders()->stop(stopped));
    QCOMPARE(bench.finish(stopped).state, DOrder::State::Stopped);
    QCOMPARE(bench.valueOf(bench.start(ask, value(2))), QVariant(2));
    QVERIFY(bench.results.value(stopped).isEmpty());
    QCOMPARE(bench.statistics().droppedBytes, 11u);
    QVERIFY(!bench.plugin->orders()->stop(stopped));
}

void RuntimeTest::noOrderStopsAnothersInstruction()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    device.lateMs = 20;
    device.script = {Step::Late};
    const quint64 first = bench.start(ask, value(1));
    const quint64 itsInstruction = first + 1;
    QVariantMap second = value(2);
    second.insert(QStringLiteral("stop"), itsInstruction);
    QCOMPARE(bench.valueOf(bench.start(ask, second)), QVariant(2));
    QCOMPARE(bench.valueOf(first), QVariant(1));
}

void RuntimeTest::unaskedBytesAnswerNothing()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    device.sendUnasked(QByteArray::fromHex("aabb0000000500030200ee"));
    QTRY_COMPARE(bench.statistics().droppedBytes, 11u);
    QCOMPARE(bench.valueOf(bench.start(ask, value(2))), QVariant(2));
    QCOMPARE(device.connections, 2); // nobody can tell any more what answers what on the first one
}

void RuntimeTest::anUnsentOrderWaitsForTheNewConnection()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    device.closeAll(); // which only the next write finds out
    QCOMPARE(bench.valueOf(bench.start(ask, value(2, 1000))), QVariant(2));
    QCOMPARE(device.requests.size(), 2);
}

void RuntimeTest::refusals_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QString>("says");
    QTest::newRow("unknown command") << "dance" << QVariantMap() << "no command 'dance'";
    QTest::newRow("stop name") << "disconnect" << QVariantMap() << "no command 'disconnect'";
    QTest::newRow("out of range") << "ask" << value(65536)
                                  << "parameter 'value': '65536' is not a number 0 to 65535";
}

void RuntimeTest::refusals()
{
    QFETCH(QString, command);
    QFETCH(QVariantMap, parameters);
    QFETCH(QString, says);
    Bench bench;
    QString refusal;
    QCOMPARE(bench.plugin->orders()->start(command, parameters, &refusal), 0u);
    QVERIFY2(refusal.contains(says), qPrintable(refusal));
}

void RuntimeTest::nothingIsReportedBeforeStartReturns()
{
    Bench bench;
    const quint64 id = bench.start(ask, {{QStringLiteral("function"), QStringLiteral("atOnce")}});
    QVERIFY(bench.results.isEmpty() && bench.ends.isEmpty());
    QCOMPARE(bench.finish(id).state, DOrder::State::Done);
    QCOMPARE(bench.valueOf(id), QVariant(7)); // the declared default
}

void RuntimeTest::whatFailsAtOnce_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<Code>("code");
    QTest::addColumn<QString>("says");
    const auto with = [](const char* key, const QVariant& v) {
        return QVariantMap{{QString::fromLatin1(key), v}};
    };
    const QVariantMap recurrent{{QStringLiteral("recurrent"), true},
                                {QStringLiteral("recurrentInterval"), QStringLiteral("soon")}};
    QTest::newRow("no connection") << QVariantMap() << Code::NotConnected << "no connection";
    QTest::newRow("unknown function")
        << with("function", QStringLiteral("fly")) << Code::Usage << "no function 'fly'";
    QTest::newRow("nothing issued")
        << with("function", QString()) << Code::Usage << "nothing to ask";
    QTest::newRow("command refuses") << with("refuse", true) << Code::Usage << "refused to run";
    QTest::newRow("interval is no number") << recurrent << Code::Usage << "'soon' is not a number";
}

void RuntimeTest::whatFailsAtOnce()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QString, says);
    Bench bench;
    const DOrder& order = bench.finish(bench.start(ask, parameters));
    QCOMPARE(order.state, DOrder::State::Failed);
    QVERIFY2(order.failure.text.contains(says), qPrintable(order.failure.text));
    QTEST(order.failure.code, "code");
}

void RuntimeTest::theQueueIsBounded()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    device.script = {Step::Never};
    QList<quint64> ids;
    for (int i = 0; i < 1 + 1024 + 1; ++i) { // one in flight, a full queue, one too many
        ids.append(bench.start(ask, value(i)));
    }
    const DOrder& refused = bench.finish(ids.last());
    QCOMPARE(refused.failure.code, Code::Usage);
    QVERIFY(refused.failure.text.contains(QLatin1String("queue is full")));
    QCOMPARE(bench.ends.size(), 2);
    QCOMPARE(bench.valueOf(ids.at(1024)), QVariant(1024));
    QCOMPARE(bench.ends.size(), 1 + ids.size());
}

void RuntimeTest::connectFails_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<Code>("code");
    QTest::addColumn<QString>("says");
    const auto to = [](const char* host, const QVariant& port) {
        return QVariantMap{{QStringLiteral("host"), QString::fromLatin1(host)},
                           {QStringLiteral("port"), port},
                           {QStringLiteral("limit"), 4000}};
    };
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    QTest::newRow("nobody listens")
        << to("127.0.0.1", closed.serverPort()) << Code::NotConnected << "refused";
    QTest::newRow("no such host") << to("no-such-host.invalid", 502) << Code::NotConnected
                                  << "cannot connect to no-such-host.invalid:502";
    QTest::newRow("port too large") << to("127.0.0.1", 70000) << Code::Usage << "'70000'";
    QTest::newRow("port 0") << to("127.0.0.1", 0) << Code::Usage << "'0'";
    QTest::newRow("no host") << to(" ", 502) << Code::Usage << "'host' is empty";
    QVariantMap strange = to("127.0.0.1", 502);
    strange.insert(QStringLiteral("keepAliveFunction"), QStringLiteral("sing"));
    QTest::newRow("unknown keep-alive") << strange << Code::Usage << "no function 'sing'";
}

void RuntimeTest::connectFails()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QString, says);
    Bench bench;
    const quint64 id = bench.start(QStringLiteral("connect"), parameters);
    const quint64 waiting = bench.start(ask);
    const DOrder& order = bench.finish(id);
    QCOMPARE(order.state, DOrder::State::Failed);
    QVERIFY2(order.failure.text.contains(says), qPrintable(order.failure.text));
    QTEST(order.failure.code, "code");
    QCOMPARE(bench.finish(waiting).failure.code, Code::NotConnected);
}

void RuntimeTest::stoppedConnectEndsAfterDisconnect()
{
    ScriptedDevice device;
    Bench bench;
    const quint64 id = bench.connectTo(device.port());
    QTRY_COMPARE(bench.results.value(id), QStringList(connectedTrue));
    const quint64 second = bench.connectTo(device.port());
    QVERIFY(bench.finish(second).failure.text.contains(QLatin1String("already connected")));
    bench.plugin->orders()->stop(id);
    QCOMPARE(bench.finish(id).state, DOrder::State::Stopped);
    QCOMPARE(bench.results.value(id).last(), QStringLiteral("disconnected=true"));
    QTRY_COMPARE(device.openConnections(), 0);
    bench.connectTo(device.port());
    QCOMPARE(bench.valueOf(bench.start(ask, value(5))), QVariant(5));
    QCOMPARE(device.connections, 2);
}

void RuntimeTest::disconnectDoesNotWaitForAReplyThatNobodyWants()
{
    ScriptedDevice device;
    Bench bench;
    const quint64 connection = bench.connectTo(device.port());
    device.script = {Step::Never};
    const quint64 id = bench.start(ask, value(1, 60000));
    QTRY_COMPARE(device.requests.size(), 1);
    bench.plugin->orders()->stop(id);
    bench.plugin->orders()->stop(connection);
    QCOMPARE(bench.finish(connection).state, DOrder::State::Stopped);
    QTRY_COMPARE(device.openConnections(), 0);
    QCOMPARE(bench.statistics().done, 0u);
}

void RuntimeTest::ordersFailAtOnceWhileTheDeviceIsGone()
{
    ScriptedDevice device;
    const quint16 port = device.port();
    Bench bench;
    const quint64 id = bench.connectTo(port);
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    device.powerOff();
    QTRY_COMPARE(bench.results.value(id).size(), 2);
    const quint64 waits = bench.start(ask, value(2));
    QCOMPARE(bench.finish(waits).failure.code, Code::NotConnected); // once the attempt has failed
    const quint64 atOnce = bench.start(ask, value(3));
    QCoreApplication::processEvents();
    QCOMPARE(bench.ends.value(atOnce), 1);
    QVERIFY(bench.finish(atOnce).failure.text.contains(QLatin1String("being re-opened")));
    QVERIFY(device.start(port));
    QTRY_COMPARE_WITH_TIMEOUT(bench.results.value(id).size(), 3, 20000);
    QCOMPARE(bench.valueOf(bench.start(ask, value(4))), QVariant(4));
}

void RuntimeTest::repetitionsGoOn()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    device.script = {Step::Answer, Step::Exception2, Step::Answer, Step::Never, Step::Answer};
    const quint64 id = bench.start(watch, repeating(9, 5));
    QVERIFY(waitFor([&] { return bench.results.value(id).size() >= 4; }));
    QCOMPARE(bench.troubles.value(id), (QList<Code>{Code::DeviceException, Code::Timeout}));
    QVERIFY(bench.plugin->orders()->stop(id));
    QCOMPARE(bench.finish(id).state, DOrder::State::Stopped);
    const int asked = device.requests.size();
    QCOMPARE(bench.valueOf(bench.start(ask, value(1))), QVariant(1));
    QVERIFY(device.requests.size() <= asked + 2); // the one in flight, and this one
}

void RuntimeTest::ticksDoNotPileUpAndOneShotsGoFirst()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    device.lateMs = 20;
    for (int i = 0; i < 60; ++i) {
        device.script.append(Step::Late);
    }
    const quint64 first = bench.start(watch, repeating(1, 2, 1000));
    const quint64 second = bench.start(watch, repeating(2, 2, 1000));
    QVERIFY(waitFor([&] {
        return bench.results.value(first).size() >= 3 && bench.results.value(second).size() >= 3;
    }));
    QVERIFY(qAbs(bench.results.value(first).size() - bench.results.value(second).size()) <= 1);
    const int asked = device.requests.size();
    QCOMPARE(bench.valueOf(bench.start(ask, value(3, 1000))), QVariant(3));
    QVERIFY(device.requests.size() <= asked + 2); // one reply at most before it
    QVERIFY(bench.statistics().ticksSkipped > 0);
}

void RuntimeTest::theLinkIsSetUpForTheField()
{
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    bench.finish(bench.start(ask));
    const auto* worker = static_cast<FixtureWorker*>(bench.plugin->worker());
    const auto descriptor = static_cast<int>(worker->socket()->socketDescriptor());
    const auto option = [descriptor](int level, int name) {
        int number = -1;
        socklen_t size = sizeof(number);
        ::getsockopt(descriptor, level, name, &number, &size);
        return number;
    };
    QCOMPARE(option(IPPROTO_TCP, TCP_NODELAY), 1);
    QCOMPARE(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    QCOMPARE(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
    QCOMPARE(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
}

void RuntimeTest::keepAliveFindsADeadDevice()
{
    ScriptedDevice device;
    Bench bench(20);
    const quint64 id = bench.connectTo(device.port(), 60);
    device.script = {Step::Answer, Step::Never};
    QTRY_COMPARE(bench.results.value(id),
                 (QStringList{connectedTrue, QStringLiteral("disconnected=true"), connectedTrue}));
    QCOMPARE(device.requests.first().mid(8, 2), QByteArray::fromHex("ffff"));
}

void RuntimeTest::keepAliveTakesAnyReplyAsLife()
{
    ScriptedDevice device;
    Bench bench(20);
    const quint64 id = bench.connectTo(device.port(), 1000);
    device.script = {Step::Exception2, Step::Exception2, Step::Exception2};
    QVERIFY(waitFor([&] { return device.requests.size() >= 4; }));
    QCOMPARE(bench.results.value(id), QStringList(connectedTrue));
    QCOMPARE(device.connections, 1);
}

void RuntimeTest::destructionEndsEveryOrderOnce()
{
    ScriptedDevice device;
    device.script = {Step::Never};
    Bench bench;
    QList<quint64> ids{bench.connectTo(device.port())};
    QTRY_COMPARE(device.openConnections(), 1);
    for (int i = 0; i < 5; ++i) {
        ids.append(bench.start(ask, value(i)));
    }
    ids.append(bench.start(ask, {{QStringLiteral("function"), QStringLiteral("atOnce")}}));
    bench.plugin.reset();
    for (const quint64 id : ids) {
        QCOMPARE(bench.ends.value(id), 1);
        QCOMPARE(bench.ended.value(id).state, DOrder::State::Stopped);
    }
    QTRY_COMPARE(device.openConnections(), 0);
}

void RuntimeTest::destructionInsideAReport_data()
{
    QTest::addColumn<bool>("ofWorker");
    QTest::newRow("of the orders") << false;
    QTest::newRow("of the worker") << true;
}

void RuntimeTest::destructionInsideAReport()
{
    QFETCH(bool, ofWorker);
    ScriptedDevice device;
    Bench bench;
    bench.connectTo(device.port());
    const quint64 first = bench.start(ask, value(1));
    const quint64 second = bench.start(ask, value(2));
    if (ofWorker) {
        QObject::connect(bench.plugin->worker(), &DAbstractWorker::sigOrderDone, this,
                         [&] { bench.plugin.reset(); });
    } else {
        QObject::connect(bench.plugin->orders(), &DOrders::sigOrderFinished, this,
                         [&](const DOrder& order) {
                             if (order.id == first) {
                                 bench.plugin.reset();
                             }
                         });
    }
    QVERIFY(waitFor([&] { return bench.plugin.isNull(); }));
    QCOMPARE(bench.ends.value(first), 1);
    QCOMPARE(bench.ends.value(second), 1);
    QCoreApplication::processEvents();
}

void RuntimeTest::aLoopInsideAReportStopsNobody_data()
{
    QTest::addColumn<QList<Step>>("firstDevice");
    QTest::newRow("in a reply") << QList<Step>{ScriptedDevice::Answer};
    QTest::newRow("in a time-out") << QList<Step>{ScriptedDevice::Answer, ScriptedDevice::Never};
}

// What a slot does while it shows a dialog, say. Two orders of others come to their time limits in
// it, and a reply comes too; all other limits are too far off to help.
void RuntimeTest::aLoopInsideAReportStopsNobody()
{
    QFETCH(QList<Step>, firstDevice);
    ScriptedDevice device;
    device.script = firstDevice;
    ScriptedDevice silent;
    silent.script = {Step::Never, Step::Never};
    ScriptedDevice lively;
    std::array<Bench, 4> benches;
    constexpr int farOff = 60000;
    benches[0].connectTo(device.port(), farOff);
    benches[1].connectTo(silent.port(), farOff);
    benches[2].connectTo(silent.port(), farOff);
    benches[3].connectTo(lively.port(), farOff);
    for (int left = firstDevice.size(); left > 1; --left) {
        benches[0].finish(benches[0].start(ask, value(0, farOff)));
    }
    const quint64 first = benches[0].start(ask, value(1, 40));
    const std::array<quint64, 2> limited{benches[1].start(ask, value(2, 60)),
                                         benches[2].start(ask, value(3, 80))};
    bool others = false;
    QObject::connect(
        benches[0].plugin->orders(), &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
            const quint64 prompt = order.id == first ? benches[3].start(ask, value(4, farOff)) : 0;
            others = prompt == 0 || waitFor([&] {
                         return benches[1].ends.contains(limited[0])
                             && benches[2].ends.contains(limited[1])
                             && benches[3].ends.contains(prompt);
                     });
        });
    benches[0].finish(first);
    QVERIFY(others);
}

QTEST_GUILESS_MAIN(RuntimeTest)

#include "tst_runtime.moc"
