#include "echo_device.h"
#include "recorded_object.h"
#include "table.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

class RuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    void noOrderStopsAnothersInstruction();
    void nothingIsReportedBeforeStartReturns();
    void aLoopInsideStartReportsOthersOnly();
    void whatIsGivenInsideALoopOfAReportIsCarriedOut_data();
    void whatIsGivenInsideALoopOfAReportIsCarriedOut();
    void whatWaitsToBeReportedComesInsideLoopsOfTheFirst();
    void aRepetitionComesInsideALoopOfTheLastOne();
    void failures_data();
    void failures();
    void theLinkIsSetUpForTheField();
    void aFloodOfRepliesEndsTheConnection();
    void aListenerHearsFirst_data();
    void aListenerHearsFirst();
};

void RuntimeTest::noOrderStopsAnothersInstruction()
{
    EchoDevice device;
    RecordedObject object;
    object.connectTo(device.serverPort());
    const quint64 first = object.start(ask, value(1));
    const quint64 itsInstruction = first + 1;
    QVariantMap second = value(2);
    second.insert(QStringLiteral("stop"), itsInstruction);
    QCOMPARE(object.valueOf(object.start(ask, second)), QVariant(2));
    QCOMPARE(object.valueOf(first), QVariant(1));
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
    EchoDevice device;
    RecordedObject object;
    QCOMPARE(object.finish(object.start(ask, value(1))).state, DOrder::State::Failed);
    const quint64 connection = object.connectTo(device.serverPort());
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

void RuntimeTest::whatIsGivenInsideALoopOfAReportIsCarriedOut_data() { addRows("loops"); }

// No time limit comes to its help: that of the first order is far off.
void RuntimeTest::whatIsGivenInsideALoopOfAReportIsCarriedOut()
{
    QFETCH(QStringList, cells);
    const bool isGivenInReport = cells[0] == "yes";
    const bool isGivenInLoop = cells[1] == "yes";
    EchoDevice device;
    RecordedObject object;
    object.connectTo(device.serverPort());
    bool carriedOut = false;
    connect(object.plugin->orders(), &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
        const QVariant given = order.parameters.value(QStringLiteral("value"));
        carriedOut = carriedOut || given == QVariant(2);
        if (given == QVariant(1)) {
            QEventLoop loop;
            connect(object.plugin->orders(), &DOrders::sigOrderFinished, &loop, &QEventLoop::quit);
            if (isGivenInLoop) {
                QTimer::singleShot(0, &loop, [&] { object.start(ask, value(2)); });
            } else if (isGivenInReport) {
                object.start(ask, value(2));
            }
            QTimer::singleShot(5000, &loop, &QEventLoop::quit);
            loop.exec();
        }
    });
    QVariantMap parameters = value(1);
    parameters.insert(QStringLiteral("limit"), 60000);
    const quint64 id = object.start(ask, parameters);
    if (!isGivenInReport) {
        object.start(ask, value(2));
    }
    object.finish(id);
    QVERIFY(carriedOut);
}

// Both are over before start() has returned, and so are told by the loop.
void RuntimeTest::whatWaitsToBeReportedComesInsideLoopsOfTheFirst()
{
    RecordedObject object;
    const QVariantMap atOnce{{QStringLiteral("function"), QStringLiteral("atOnce")}};
    const quint64 first = object.start(ask, atOnce);
    const quint64 second = object.start(ask, atOnce);
    const DOrders* orders = object.plugin->orders();
    bool cameInside = false;
    connect(orders, &DOrders::sigOrderResult, this, [&](quint64 id) {
        if (id == first) {
            QVERIFY(waitFor([&] { return object.ends.value(first) == 1; }));
        }
    });
    connect(orders, &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
        if (order.id == first) {
            cameInside = waitFor([&] { return object.ends.value(second) == 1; });
        }
    });
    object.finish(first);
    QVERIFY(cameInside);
}

// Which runs in a listener of the worker's, who hears of a repetition before its order does.
void RuntimeTest::aRepetitionComesInsideALoopOfTheLastOne()
{
    EchoDevice device;
    RecordedObject object;
    object.connectTo(device.serverPort());
    QVariantMap parameters = value(1);
    parameters.insert(QStringLiteral("limit"), 60000);
    parameters.insert(QStringLiteral("recurrent"), true);
    parameters.insert(QStringLiteral("recurrentInterval"), 20);
    int told = 0;
    connect(object.plugin->orders(), &DOrders::sigOrderResult, this, [&] { ++told; });
    int repetitions = 0;
    int toldBefore = 0; // the second
    connect(object.plugin->worker(), &DAbstractWorker::sigOrderAnswer, this, [&] {
        toldBefore = ++repetitions == 2 ? told : toldBefore;
        if (repetitions == 1) {
            QVERIFY(waitFor([&] { return repetitions == 2; }));
        }
    });
    object.start(ask, parameters);
    QVERIFY(waitFor([&] { return repetitions > 1; }));
    QCOMPARE(toldBefore, 1);
}

void RuntimeTest::failures_data() { addRows("failures"); }

// What waits for a connect that fails, fails too.
void RuntimeTest::failures()
{
    QFETCH(QStringList, cells);
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    const QString port = QString::number(closed.serverPort());
    closed.close();
    RecordedObject object;
    const QVariantMap parameters = valueIn(cells[1].replace("PORT", port)).toMap();
    QString text;
    const quint64 id = object.plugin->orders()->start(cells[0], parameters, &text);
    QCOMPARE(id == 0, cells[2] == "refused");
    if (id != 0) {
        const quint64 waiting = object.start(ask);
        const DOrder& order = object.finish(id);
        QCOMPARE(order.state, DOrder::State::Failed);
        QCOMPARE(QString(OrderFailure::codeName(order.failure.code)), cells[2]);
        text = order.failure.text;
        QCOMPARE(object.finish(waiting).failure.code, OrderFailure::Code::NotConnected);
    }
    QVERIFY2(text.contains(cells[3]), qPrintable(text));
}

void RuntimeTest::theLinkIsSetUpForTheField()
{
    EchoDevice device;
    RecordedObject object;
    object.connectTo(device.serverPort());
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

// With transaction ids, which let all the rest go by.
void RuntimeTest::aFloodOfRepliesEndsTheConnection()
{
    EchoDevice device;
    RecordedObject object;
    LinkOptions options;
    options.transactionIds = true;
    QVERIFY(object.plugin->setLinkOptions(options));
    object.connectTo(device.serverPort());
    QCOMPARE(object.valueOf(object.start(ask, value(1))), QVariant(1));
    const QByteArray stray = QByteArray::fromHex("7777000000050003020000");
    device.findChild<QTcpSocket*>()->write(stray.repeated(20000));
    QTRY_COMPARE(object.plugin->worker()->statistics().reconnects, 1u);
}

void RuntimeTest::aListenerHearsFirst_data() { addRows("listeners"); }

void RuntimeTest::aListenerHearsFirst()
{
    QFETCH(QStringList, cells);
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
    EchoDevice device;
    Listener listener;
    listener.destroysOn = cells[0].toLatin1();
    DOrders* orders = listener.object.plugin->orders();
    orders->setListener(&listener);
    connect(orders, &DOrders::sigOrderFinished, this, [&](const DOrder& order) {
        if (order.id == listener.asked) {
            listener.heard.append("S");
        }
    });
    listener.object.connectTo(device.serverPort());
    listener.asked = listener.object.start(ask, value(1));
    QVERIFY(waitFor([&] { return listener.heard.contains("end"); }));
    QCOMPARE(listener.heard.join(' '), cells[1].toLatin1());
}

QTEST_GUILESS_MAIN(RuntimeTest)

#include "tst_runtime.moc"
