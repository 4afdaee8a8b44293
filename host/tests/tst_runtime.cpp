#include "recorded_object.h"
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
    void nothingLeavesBehindBytesThatWait_data();
    void nothingLeavesBehindBytesThatWait();
    void whatHasArrivedIsNoTimeOut();
    void anUnsentOrderWaitsForTheNewConnection();
    void refusals_data();
    void refusals();
    void nothingIsReportedBeforeStartReturns();
    void aLoopInsideStartReportsOthersOnly();
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
    void aListenerHearsFirst_data();
    void aListenerHearsFirst();
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
    RecordedObject object;
    const quint64 connection = object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.script = script;
    const quint64 id = object.start(ask, value(258));
    QCOMPARE(object.finish(id).failure.code, code);
    if (code == Code::None) {
        QCOMPARE(object.valueOf(id), QVariant(258));
    }
    if (code == Code::DeviceException) {
        QCOMPARE(object.finish(id).failure.exceptionCode, 2);
        QCOMPARE(object.finish(id).failure.unitId, 0);
        QVERIFY(object.finish(id).failure.text.contains(QLatin1String("illegal data address")));
    }
    QTRY_COMPARE(object.valueOf(object.start(ask, value(772))), QVariant(772));
    QTEST(device.connections, "connections");
    QCOMPARE(device.mostConnections, 1);
    QCOMPARE(object.ends.value(connection), 0);
}

void RuntimeTest::aLateReplyAnswersNoOtherOrder()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    device.lateMs = 70; // ten more than the orders' limit, and so in the middle of the next one's
    device.script = {Step::Answer, Step::Late, Step::Late, Step::Answer, Step::Late, Step::Answer};
    QVariantList values;
    for (int i = 1; i <= 6; ++i) {
        values.append(object.valueOf(object.start(ask, value(i))));
    }
    QCOMPARE(values, (QVariantList{1, {}, {}, 4, {}, 6}));
    QCOMPARE(object.statistics().timeouts, 3u);
}

void RuntimeTest::aStoppedOrdersReplyAnswersNoOtherOrder()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    device.lateMs = 20;
    device.script = {Step::Late};
    const quint64 stopped = object.start(ask, value(1));
    QTRY_COMPARE(device.requests.size(), 1);
    QVERIFY(object.plugin->orders()->stop(stopped));
    QCOMPARE(object.finish(stopped).state, DOrder::State::Stopped);
    QCOMPARE(object.valueOf(object.start(ask, value(2))), QVariant(2));
    QVERIFY(object.results.value(stopped).isEmpty());
    QCOMPARE(object.statistics().droppedBytes, 11u);
    QVERIFY(!object.plugin->orders()->stop(stopped));
}

void RuntimeTest::noOrderStopsAnothersInstruction()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    device.lateMs = 20;
    device.script = {Step::Late};
    const quint64 first = object.start(ask, value(1));
    const quint64 itsInstruction = first + 1;
    QVariantMap second = value(2);
    second.insert(QStringLiteral("stop"), itsInstruction);
    QCOMPARE(object.valueOf(object.start(ask, second)), QVariant(2));
    QCOMPARE(object.valueOf(first), QVariant(1));
}

void RuntimeTest::unaskedBytesAnswerNothing()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.sendUnasked(QByteArray::fromHex("aabb0000000500030200ee"));
    QTRY_COMPARE(object.statistics().droppedBytes, 11u);
    QCOMPARE(object.valueOf(object.start(ask, value(2))), QVariant(2));
    QCOMPARE(device.connections, 2); // nobody can tell any more what answers what on the first one
}

void RuntimeTest::nothingLeavesBehindBytesThatWait_data()
{
    QTest::addColumn<QByteArray>("waiting");
    QTest::newRow("a copy of the last reply") << QByteArray::fromHex("aabb000000050003020001");
    QTest::newRow("a flood") << QByteArray(8 << 20, 'x');
}

// They came while the process was at something else: no loop has run since the last order.
void RuntimeTest::nothingLeavesBehindBytesThatWait()
{
    QFETCH(QByteArray, waiting);
    constexpr quint64 oneBuffer = 16384;
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.sendUnasked(waiting);
    QCOMPARE(object.valueOf(object.start(ask, value(2, 1000))), QVariant(2));
    QCOMPARE(device.connections, 2);
    QCOMPARE(device.requests.size(), 2);
    QVERIFY(object.statistics().droppedBytes > 0);
    QVERIFY(object.statistics().droppedBytes <= oneBuffer);
}

// The time limit is seen before the reply, as it is after a pause of the process.
void RuntimeTest::whatHasArrivedIsNoTimeOut()
{
    constexpr int limitMs = 20;
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    RecordedObject object;
    object.connectTo(server.serverPort());
    QVERIFY(waitFor([&] { return server.hasPendingConnections(); }));
    QTcpSocket* device = server.nextPendingConnection();
    const quint64 id = object.start(ask, value(1, limitMs));
    QVERIFY(device->waitForReadyRead());
    device->write(ScriptedDevice::reply(device->readAll()));
    QVERIFY(device->waitForBytesWritten());
    QThread::msleep(2 * limitMs);
    QCoreApplication::processEvents(QEventLoop::ExcludeSocketNotifiers);
    QCOMPARE(object.valueOf(id), QVariant(1));
    QCOMPARE(object.statistics().timeouts, 0u);
}

void RuntimeTest::anUnsentOrderWaitsForTheNewConnection()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.closeAll(); // which only the next write finds out
    QCOMPARE(object.valueOf(object.start(ask, value(2, 1000))), QVariant(2));
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
    RecordedObject object;
    QString refusal;
    QCOMPARE(object.plugin->orders()->start(command, parameters, &refusal), 0u);
    QVERIFY2(refusal.contains(says), qPrintable(refusal));
}

void RuntimeTest::nothingIsReportedBeforeStartReturns()
{
    RecordedObject object;
    const quint64 id = object.start(ask, {{QStringLiteral("function"), QStringLiteral("atOnce")}});
    QVERIFY(object.results.isEmpty() && object.ends.isEmpty());
    QCOMPARE(object.finish(id).state, DOrder::State::Done);
    QCOMPARE(object.valueOf(id), QVariant(7)); // the declared default
}

void RuntimeTest::aLoopInsideStartReportsOthersOnly()
{
    ScriptedDevice device;
    RecordedObject object;
    QCOMPARE(object.finish(object.start(ask, value(1))).state, DOrder::State::Failed);
    const quint64 connection = object.connectTo(device.port());
    QVERIFY(waitFor([&] { return !object.results.value(connection).isEmpty(); }));
    quint64 within = 0;
    bool loopHasRun = false;
    object.plugin->worker()->setFrameTracer([&](bool outgoing, const QByteArray& /*frame*/) {
        if (outgoing && within == 0) { // start() of the other order is on the stack
            within = object.start(ask, value(3));
            loopHasRun = waitFor([&] { return object.ends.value(within) == 1; });
        }
    });
    const quint64 id = object.plugin->orders()->start(ask, value(2));
    QVERIFY(loopHasRun);
    QVERIFY(!object.results.contains(id) && object.ends.value(id) == 0);
    QCOMPARE(object.valueOf(id), QVariant(2));
    QCOMPARE(object.valueOf(within), QVariant(3));
}

void RuntimeTest::whatFailsAtOnce_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<Code>("code");
    QTest::addColumn<QString>("says");
    const auto with = [](const char* key, const QVariant& v) {
        return QVariantMap{{QString::fromLatin1(key), v}};
    };
    QTest::newRow("no connection") << QVariantMap() << Code::NotConnected << "no connection";
    QTest::newRow("unknown function")
        << with("function", QStringLiteral("fly")) << Code::Usage << "no function 'fly'";
    QTest::newRow("nothing issued")
        << with("function", QString()) << Code::Usage << "nothing to ask";
    QTest::newRow("command refuses") << with("refuse", true) << Code::Usage << "refused to run";
    QTest::newRow("no interval") << with("recurrent", true) << Code::Usage << "'' is not a number";
}

void RuntimeTest::whatFailsAtOnce()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QString, says);
    RecordedObject object;
    const DOrder& order = object.finish(object.start(ask, parameters));
    QCOMPARE(order.state, DOrder::State::Failed);
    QVERIFY2(order.failure.text.contains(says), qPrintable(order.failure.text));
    QTEST(order.failure.code, "code");
}

void RuntimeTest::theQueueIsBounded()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.script = {Step::Never};
    QList<quint64> ids;
    for (int i = 0; i < 1 + 1024 + 1; ++i) { // one in flight, a full queue, one too many
        ids.append(object.start(ask, value(i)));
    }
    const DOrder& refused = object.finish(ids.last());
    QCOMPARE(refused.failure.code, Code::Usage);
    QVERIFY(refused.failure.text.contains(QLatin1String("queue is full")));
    QCOMPARE(object.ends.size(), 2);
    QCOMPARE(object.valueOf(ids.at(1024)), QVariant(1024));
    QCOMPARE(object.ends.size(), 1 + ids.size());
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
    RecordedObject object;
    const quint64 id = object.start(QStringLiteral("connect"), parameters);
    const quint64 waiting = object.start(ask);
    const DOrder& order = object.finish(id);
    QCOMPARE(order.state, DOrder::State::Failed);
    QVERIFY2(order.failure.text.contains(says), qPrintable(order.failure.text));
    QTEST(order.failure.code, "code");
    QCOMPARE(object.finish(waiting).failure.code, Code::NotConnected);
}

void RuntimeTest::stoppedConnectEndsAfterDisconnect()
{
    ScriptedDevice device;
    RecordedObject object;
    const quint64 id = object.connectTo(device.port());
    QTRY_COMPARE(object.results.value(id), QStringList(connectedTrue));
    const quint64 second = object.connectTo(device.port());
    QVERIFY(object.finish(second).failure.text.contains(QLatin1String("already connected")));
    object.plugin->orders()->stop(id);
    QCOMPARE(object.finish(id).state, DOrder::State::Stopped);
    QCOMPARE(object.results.value(id).last(), QStringLiteral("disconnected=true"));
    QTRY_COMPARE(device.openConnections(), 0);
    object.connectTo(device.port());
    QCOMPARE(object.valueOf(object.start(ask, value(5))), QVariant(5));
    QCOMPARE(device.connections, 2);
}

void RuntimeTest::disconnectDoesNotWaitForAReplyThatNobodyWants()
{
    ScriptedDevice device;
    RecordedObject object;
    const quint64 connection = object.connectTo(device.port());
    device.script = {Step::Never};
    const quint64 id = object.start(ask, value(1, 60000));
    QTRY_COMPARE(device.requests.size(), 1);
    object.plugin->orders()->stop(id);
    object.plugin->orders()->stop(connection);
    QCOMPARE(object.finish(connection).state, DOrder::State::Stopped);
    QTRY_COMPARE(device.openConnections(), 0);
    QCOMPARE(object.statistics().done, 0u);
}

void RuntimeTest::ordersFailAtOnceWhileTheDeviceIsGone()
{
    ScriptedDevice device;
    const quint16 port = device.port();
    RecordedObject object;
    const quint64 id = object.connectTo(port);
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    device.powerOff();
    QTRY_COMPARE(object.results.value(id).size(), 2);
    const quint64 waits = object.start(ask, value(2));
    QCOMPARE(object.finish(waits).failure.code, Code::NotConnected); // once the attempt has failed
    const quint64 atOnce = object.start(ask, value(3));
    QCoreApplication::processEvents();
    QCOMPARE(object.ends.value(atOnce), 1);
    QVERIFY(object.finish(atOnce).failure.text.contains(QLatin1String("being re-opened")));
    QVERIFY(device.start(port));
    QTRY_COMPARE_WITH_TIMEOUT(object.results.value(id).size(), 3, 20000);
    QCOMPARE(object.valueOf(object.start(ask, value(4))), QVariant(4));
}

void RuntimeTest::repetitionsGoOn()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    device.script = {Step::Answer, Step::Exception2, Step::Answer, Step::Never, Step::Answer};
    const quint64 id = object.start(watch, repeating(9, 5));
    QVERIFY(waitFor([&] { return object.results.value(id).size() >= 4; }));
    QCOMPARE(object.troubles.value(id), (QList<Code>{Code::DeviceException, Code::Timeout}));
    QVERIFY(object.plugin->orders()->stop(id));
    QCOMPARE(object.finish(id).state, DOrder::State::Stopped);
    const int asked = device.requests.size();
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    QVERIFY(device.requests.size() <= asked + 2); // the one in flight, and this one
}

void RuntimeTest::ticksDoNotPileUpAndOneShotsGoFirst()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    device.lateMs = 20;
    for (int i = 0; i < 60; ++i) {
        device.script.append(Step::Late);
    }
    const quint64 first = object.start(watch, repeating(1, 2, 1000));
    const quint64 second = object.start(watch, repeating(2, 2, 1000));
    QVERIFY(waitFor([&] {
        return object.results.value(first).size() >= 3 && object.results.value(second).size() >= 3;
    }));
    QVERIFY(qAbs(object.results.value(first).size() - object.results.value(second).size()) <= 1);
    const int asked = device.requests.size();
    QCOMPARE(object.valueOf(object.start(ask, value(3, 1000))), QVariant(3));
    QVERIFY(device.requests.size() <= asked + 2); // one reply at most before it
    QVERIFY(object.statistics().ticksSkipped > 0);
}

void RuntimeTest::theLinkIsSetUpForTheField()
{
    ScriptedDevice device;
    RecordedObject object;
    object.connectTo(device.port());
    object.finish(object.start(ask));
    const auto* worker = static_cast<FixtureWorker*>(object.plugin->worker());
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
    RecordedObject object(20);
    const quint64 id = object.connectTo(device.port(), 60);
    device.script = {Step::Answer, Step::Never};
    QTRY_COMPARE(object.results.value(id),
                 (QStringList{connectedTrue, QStringLiteral("disconnected=true"), connectedTrue}));
    QCOMPARE(device.requests.first().mid(8, 2), QByteArray::fromHex("ffff"));
}

void RuntimeTest::keepAliveTakesAnyReplyAsLife()
{
    ScriptedDevice device;
    RecordedObject object(20);
    const quint64 id = object.connectTo(device.port(), 1000);
    device.script = {Step::Exception2, Step::Exception2, Step::Exception2};
    QVERIFY(waitFor([&] { return device.requests.size() >= 4; }));
    QCOMPARE(object.results.value(id), QStringList(connectedTrue));
    QCOMPARE(device.connections, 1);
}

void RuntimeTest::destructionEndsEveryOrderOnce()
{
    ScriptedDevice device;
    device.script = {Step::Never};
    RecordedObject object;
    QList<quint64> ids{object.connectTo(device.port())};
    QTRY_COMPARE(device.openConnections(), 1);
    for (int i = 0; i < 5; ++i) {
        ids.append(object.start(ask, value(i)));
    }
    ids.append(object.start(ask, {{QStringLiteral("function"), QStringLiteral("atOnce")}}));
    object.plugin.reset();
    for (const quint64 id : ids) {
        QCOMPARE(object.ends.value(id), 1);
        QCOMPARE(object.ended.value(id).state, DOrder::State::Stopped);
    }
    QTRY_COMPARE(device.openConnections(), 0);
}

void RuntimeTest::destructionInsideAReport_data()
{
    QTest::addColumn<QString>("report");
    for (const char* report : {"an order's end", "done", "running", "connected", "disconnected",
                               "frame out", "frame in"}) {
        QTest::newRow(report) << QString::fromLatin1(report);
    }
}

void RuntimeTest::destructionInsideAReport()
{
    QFETCH(QString, report);
    ScriptedDevice device;
    RecordedObject object;
    DAbstractWorker* worker = object.plugin->worker();
    const auto destroyOn = [&](const QString& name) {
        if (name == report) {
            object.plugin.reset();
        }
    };
    connect(object.plugin->orders(), &DOrders::sigOrderFinished, this,
            [&] { destroyOn(QStringLiteral("an order's end")); });
    connect(worker, &DAbstractWorker::sigOrderDone, this,
            [&] { destroyOn(QStringLiteral("done")); });
    connect(worker, &DAbstractWorker::sigOrderRunning, this, [&](quint64) {
        if (device.openConnections() > 0) {
            destroyOn(QStringLiteral("running"));
        }
    });
    connect(worker, &DAbstractWorker::sigStatusChanged, this, [&](bool up) {
        destroyOn(up ? QStringLiteral("connected") : QStringLiteral("disconnected"));
    });
    worker->setFrameTracer([&](bool outgoing, const QByteArray&) {
        destroyOn(outgoing ? QStringLiteral("frame out") : QStringLiteral("frame in"));
    });
    QList<quint64> ids{object.connectTo(device.port())};
    for (int i = 1; i <= 3; ++i) {
        ids.append(object.start(ask, value(i)));
    }
    if (report == QLatin1String("disconnected")) {
        object.finish(ids.last());
        object.plugin->orders()->stop(ids.first());
    }
    QVERIFY(waitFor([&] { return object.plugin.isNull(); }));
    for (const quint64 id : qAsConst(ids)) {
        QCOMPARE(object.ends.value(id), 1);
    }
    QCoreApplication::processEvents();
}

void RuntimeTest::aListenerHearsFirst_data()
{
    QTest::addColumn<QByteArray>("destroysOn");
    QTest::addColumn<QByteArray>("heard"); // "S": by a receiver of the signal
    QTest::newRow("nothing") << QByteArray() << QByteArray("result end S");
    QTest::newRow("the result") << QByteArray("result") << QByteArray("result end S");
    QTest::newRow("the end") << QByteArray("end") << QByteArray("result end");
}

void RuntimeTest::aListenerHearsFirst()
{
    QFETCH(QByteArray, destroysOn);
    struct Listener final : OrderListener
    {
        void orderResult(quint64 id, const QString&, const QVariant&) override
        {
            hear(id, "result");
        }
        void orderTrouble(quint64 id, const OrderFailure&) override { hear(id, "trouble"); }
        void orderFinished(const DOrder& order) override { hear(order.id, "end"); }
        void hear(quint64 id, const QByteArray& what)
        {
            if (id == asked) {
                heard.append(what);
                if (what == destroysOn) {
                    object.plugin.reset();
                }
            }
        }
        RecordedObject object;
        QByteArray destroysOn;
        QByteArrayList heard;
        quint64 asked = 0;
    };
    ScriptedDevice device;
    Listener listener;
    listener.destroysOn = destroysOn;
    DOrders* orders = listener.object.plugin->orders();
    orders->setListener(&listener);
    connect(orders, &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
        if (order.id == listener.asked) {
            listener.heard.append("S");
        }
    });
    listener.object.connectTo(device.port());
    listener.asked = listener.object.start(ask, value(1));
    QVERIFY(waitFor([&] { return listener.heard.contains("end"); }));
    QTEST(listener.heard.join(' '), "heard");
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
    std::array<RecordedObject, 4> objects;
    constexpr int farOff = 60000;
    objects[0].connectTo(device.port(), farOff);
    objects[1].connectTo(silent.port(), farOff);
    objects[2].connectTo(silent.port(), farOff);
    objects[3].connectTo(lively.port(), farOff);
    for (int left = firstDevice.size(); left > 1; --left) {
        objects[0].finish(objects[0].start(ask, value(0, farOff)));
    }
    const quint64 first = objects[0].start(ask, value(1, 40));
    const std::array<quint64, 2> limited{objects[1].start(ask, value(2, 60)),
                                         objects[2].start(ask, value(3, 80))};
    bool others = false;
    QObject::connect(
        objects[0].plugin->orders(), &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
            const quint64 prompt = order.id == first ? objects[3].start(ask, value(4, farOff)) : 0;
            others = prompt == 0 || waitFor([&] {
                         return objects[1].ends.contains(limited[0])
                             && objects[2].ends.contains(limited[1])
                             && objects[3].ends.contains(prompt);
                     });
        });
    objects[0].finish(first);
    QVERIFY(others);
}

QTEST_GUILESS_MAIN(RuntimeTest)

#include "tst_runtime.moc"
