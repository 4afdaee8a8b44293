#include <runtime/engine/backoff.h>
#include <runtime/engine/worker_engine.h>

#include "table.h"

using Code = OrderFailure::Code;
using Kind = WorkerAction::Kind;
Q_DECLARE_METATYPE(OrderFailure::Code)

namespace {

constexpr int limitMs = 1000;
const QByteArray request = QByteArray::fromHex("aabb00000006000300640002");

/// A world for an engine: does what it decides, and writes it down. Its device says nothing.
class World
{
public:
    World()
    {
        engine.declareFunction(QStringLiteral("connect"));
        engine.declareFunction(QStringLiteral("disconnect"));
        engine.declareFunction(QStringLiteral("ask"));
    }

    quint64 start(const char* function, const ParameterMap& parameters = {})
    {
        QString refusal;
        const bool taken = engine.add(++lastId, QString::fromLatin1(function), parameters, limitMs,
                                      nowUs, refusal);
        run();
        return taken ? lastId : 0;
    }

    quint64 startConnect(ParameterMap parameters = {})
    {
        parameters.insert(QStringLiteral("host"), QStringLiteral("device"));
        parameters.insert(QStringLiteral("port"), 502);
        return start("connect", parameters);
    }

    void connectNow()
    {
        startConnect();
        engine.linkOpened(nowUs);
        run();
        done.clear();
    }

    void receive(const QByteArray& bytes)
    {
        engine.received(bytes.constData(), bytes.size(), nowUs);
        run();
    }

    void pass(int ms)
    {
        nowUs += qint64{ms} * 1000;
        if (engine.wakeAtUs() <= nowUs) {
            engine.timePassed(nowUs);
            run();
        }
    }

    void run()
    {
        WorkerAction action;
        while (engine.next(action, nowUs)) {
            perform(action);
        }
    }

    WorkerEngine engine{1};
    qint64 nowUs = 1000000;
    quint64 lastId = 0;
    QStringList done; ///< what the engine has decided
    OrderFailure failure; ///< of the last outcome
    ParameterMap reply; ///< of the last outcome
    bool hookAccepts = true;
    bool writes = true; ///< functions write a request and wait for its reply
    bool stopsWhenDown = false; ///< who hears that the link is down stops the last instruction
    int waiting = 0; ///< bytes that a function finds on the link
    QByteArray inTime; ///< what has arrived when the shell looks once more

private:
    void perform(const WorkerAction& action)
    {
        switch (action.kind) {
        case Kind::CallFunction:
            call();
            break;
        case Kind::JudgeReply:
            engine.judged({{QStringLiteral("doneOk"), hookAccepts},
                           {QStringLiteral("values"), QStringLiteral("from the hook")}},
                          nowUs);
            break;
        case Kind::TellOutcome:
            note(action.outcome);
            break;
        case Kind::TellState:
            done.append(action.flag ? QStringLiteral("up") : QStringLiteral("down"));
            if (stopsWhenDown) {
                engine.stop(lastId, nowUs);
            }
            break;
        case Kind::OpenLink:
            waiting = 0;
            done.append(QStringLiteral("open"));
            break;
        case Kind::CloseLink:
            done.append(QStringLiteral("close"));
            break;
        case Kind::AskTurn:
            done.append(QStringLiteral("ask-turn"));
            break;
        case Kind::GiveTurn:
            done.append(action.flag ? QStringLiteral("give-turn")
                                    : QStringLiteral("reply-missing"));
            break;
        case Kind::Look:
            if (!inTime.isEmpty()) {
                engine.received(inTime.constData(), inTime.size(), nowUs);
            }
            engine.looked(nowUs);
            break;
        case Kind::Log:
            done.append(engine.takeNews().text);
            break;
        case Kind::Nothing:
            break;
        }
    }

    void note(Outcome outcome)
    {
        const WorkerNews news = engine.takeNews();
        failure = news.failure;
        reply = news.reply;
        done.append(QStringLiteral("%1 %2").arg(
            outcome == Outcome::Answer ? QStringLiteral("answer") : QStringLiteral("end"),
            failure ? OrderFailure::codeName(failure.code) : QStringLiteral("well")));
    }

    void call()
    {
        const WorkerInstructionPtr instruction = engine.beginCall(nowUs);
        ParameterMap result;
        bool succeeded = writes;
        if (instruction->function == 0) {
            succeeded = engine.beginConnect(instruction->parameters, result, nowUs);
        } else if (instruction->function == 1) {
            engine.disconnect(result);
        } else if (waiting > 0) {
            engine.drained(waiting);
            engine.expectReply();
        } else if (writes) {
            done.append(QStringLiteral("request"));
            engine.requestLeft(request.constData(), request.size());
            engine.expectReply();
        }
        engine.functionReturned(succeeded, result, nowUs);
    }
};

QByteArray bytes(const char* hex) { return QByteArray::fromHex(hex); }

} // namespace

/// What a worker decides, without a world.
class EngineTest : public QObject
{
    Q_OBJECT

private slots:
    void replies_data();
    void replies();
    void nothingLeavesOnALinkWhereBytesWait();
    void aLinkThatAlwaysHasBytesWaitingEndsTheOrder();
    void whatHasArrivedIsNoTimeOut_data();
    void whatHasArrivedIsNoTimeOut();
    void anAttemptThatHasSucceededIsNoTimeOut();
    void ticksOfAStoppedOrderAreNotCounted();
    void keepAlivesThatAreRefused_data();
    void keepAlivesThatAreRefused();
    void aKeepAliveThatSendsNothingIsToldOnce();
    void nothingIsToldOfWhatIsStopped();
    void aLinkThatNobodyWantsEndsWithABadReply();
    void theEndOfALinkIsToldToWhomItWasTold_data();
    void theEndOfALinkIsToldToWhomItWasTold();
    void aConnectThatIsStoppedInAReportOpensNothing();
    void aFirstAttemptIsTriedAgain();
    void numberedRequestsKeepTheLink();
    void onASharedLinkItAsksInTurn();
    void aSilentUnitIsPaused();
    void aReplyThatNobodyWantsHoldsUpNoDisconnect();
    void aKeepAliveTakesAnyReplyAsLife();
    void theQueueIsBounded();
    void delaysAreSpread();
};

void EngineTest::replies_data() { addRows("replies"); }

void EngineTest::replies()
{
    QFETCH(QStringList, cells);
    const QStringList wanted = cells[1].split(QLatin1Char(' '));
    World world;
    world.connectNow();
    world.start("ask");
    for (const QString& segment : cells[0].split(QLatin1Char(' '))) {
        world.receive(QByteArray::fromHex(segment.toLatin1()));
    }
    QVERIFY2(world.done.contains(QStringLiteral("end ") + wanted[0]), qPrintable(cells[1]));
    QCOMPARE(world.failure.exceptionCode, wanted.value(1).toInt());
    QCOMPARE(world.reply.contains(QStringLiteral("values")), wanted[0] == QLatin1String("well"));
    QCOMPARE(world.done.contains(QStringLiteral("open")), wanted[0] == QLatin1String("bad_reply"));
    QCOMPARE(world.failure.unitId, world.failure ? wanted.value(2).toInt() : -1);
}

void EngineTest::nothingLeavesOnALinkWhereBytesWait()
{
    World world;
    world.connectNow();
    world.start("ask");
    world.receive(bytes("aabb0000000700030400010002"));
    world.done.clear();
    world.waiting = 13;
    world.start("ask");
    QCOMPARE(world.done, QStringList(QStringLiteral("open")));
    world.engine.linkOpened(world.nowUs);
    world.run();
    QCOMPARE(world.done, (QStringList{QStringLiteral("open"), QStringLiteral("request")}));
    QCOMPARE(world.engine.statistics().droppedBytes, 13u);
    world.receive(bytes("aabb0000000700030400010002"));
    QCOMPARE(world.done.last(), QStringLiteral("end well"));
}

void EngineTest::aLinkThatAlwaysHasBytesWaitingEndsTheOrder()
{
    World world;
    world.connectNow();
    world.waiting = 4096;
    world.start("ask");
    const QString end = QStringLiteral("end not_connected");
    for (int second = 0; second < 10 && !world.done.contains(end); ++second) {
        world.pass(1000);
        world.waiting = 4096;
        world.engine.linkOpened(world.nowUs);
        world.run();
    }
    QVERIFY(!world.done.contains(QStringLiteral("request")));
    QCOMPARE(world.done.count(end), 1);
}

void EngineTest::whatHasArrivedIsNoTimeOut_data()
{
    QTest::addColumn<QByteArray>("inTime");
    QTest::addColumn<QString>("end");
    QTest::newRow("all of it") << bytes("aabb0000000700030400010002") << "end well";
    QTest::newRow("a part") << bytes("aabb00000007000304") << "end timeout";
    QTest::newRow("nothing") << QByteArray() << "end timeout";
}

// The process was stopped for a minute, and then the limit is seen before the bytes are.
void EngineTest::whatHasArrivedIsNoTimeOut()
{
    QFETCH(QByteArray, inTime);
    World world;
    world.connectNow();
    world.start("ask");
    world.inTime = inTime;
    world.pass(60000);
    QTEST(world.done.last(), "end");
}

void EngineTest::anAttemptThatHasSucceededIsNoTimeOut()
{
    World world;
    world.startConnect();
    world.nowUs += 60000000;
    world.engine.timePassed(world.nowUs);
    world.engine.linkOpened(world.nowUs); // found by the look
    world.run();
    QCOMPARE(world.done.join(QLatin1Char(' ')), QStringLiteral("open up answer well"));
}

void EngineTest::ticksOfAStoppedOrderAreNotCounted()
{
    World world;
    world.connectNow();
    const quint64 id = world.start(
        "ask", {{QStringLiteral("recurrent"), true}, {QStringLiteral("recurrentInterval"), 10}});
    world.pass(25); // two ticks while the first request is out
    world.engine.stop(id, world.nowUs);
    world.pass(500);
    world.receive(bytes("aabb0000000700030400010002"));
    QCOMPARE(world.engine.statistics().ticksSkipped, 0u);
    QVERIFY(!world.done.contains(QStringLiteral("answer well")));
}

void EngineTest::keepAlivesThatAreRefused_data() { addRows("keep_alives"); }

void EngineTest::keepAlivesThatAreRefused()
{
    QFETCH(QStringList, cells);
    World world;
    world.startConnect({{QStringLiteral("keepAliveFunction"), cells[0]},
                        {QStringLiteral("keepAliveFunctionRegister"), cells[1]}});
    QCOMPARE(world.failure.code, cells[2].isEmpty() ? Code::None : Code::Usage);
    QVERIFY2(world.failure.text.contains(cells[2]), qPrintable(world.failure.text));
}

void EngineTest::aKeepAliveThatSendsNothingIsToldOnce()
{
    World world;
    world.engine.setKeepAlive(QStringLiteral("ask"), {}, 5000);
    world.connectNow();
    world.writes = false;
    for (int i = 0; i < 5; ++i) {
        world.pass(5000);
    }
    QCOMPARE(world.done.size(), 1);
    QVERIFY2(world.done.first().contains(QStringLiteral("'ask' sends nothing")),
             qPrintable(world.done.first()));
    QCOMPARE(world.engine.wakeAtUs(), WorkerEngine::never);
}

void EngineTest::nothingIsToldOfWhatIsStopped()
{
    World world;
    world.connectNow();
    const quint64 id = world.start("ask");
    world.engine.received(request.constData(), 0, world.nowUs);
    world.engine.linkEnded(QStringLiteral("cut"), world.nowUs); // decided, but not told yet
    QVERIFY(world.engine.stop(id, world.nowUs));
    QVERIFY(!world.engine.stop(id + 1, world.nowUs));
    WorkerAction action;
    while (world.engine.next(action, world.nowUs)) {
        QVERIFY(action.kind != Kind::TellOutcome || action.id != id);
    }
}

// Its connect was stopped, and so was the order whose request is out: neither is there any more
// when the link is declared lost.
void EngineTest::aLinkThatNobodyWantsEndsWithABadReply()
{
    World world;
    world.connectNow();
    const quint64 id = world.start("ask");
    world.engine.stop(id, world.nowUs);
    world.engine.stop(1, world.nowUs);
    world.receive(bytes("aabb00000007001004deaddead"));
    QVERIFY(world.done.contains(QStringLiteral("down")));
    QCOMPARE(world.engine.currentId(), 0u);
}

void EngineTest::theEndOfALinkIsToldToWhomItWasTold_data()
{
    QTest::addColumn<QString>("function"); // that ends it, or nothing for stop()
    QTest::addColumn<bool>("isReplaced");
    QTest::addColumn<QString>("decided");
    QTest::newRow("a stop while it is replaced") << "" << true << "close down";
    QTest::newRow("a disconnect while it is replaced")
        << "disconnect" << true << "close down end well end well";
    QTest::newRow("a disconnect") << "disconnect" << false << "close down end well end well";
    QTest::newRow("a connect behind a stopped one") << "connect" << false << "down open";
}

// While a link is replaced, its users believe that it is open.
void EngineTest::theEndOfALinkIsToldToWhomItWasTold()
{
    QFETCH(QString, function);
    QFETCH(bool, isReplaced);
    World world;
    world.connectNow();
    if (isReplaced) {
        world.start("ask");
        world.receive(bytes("aabb0000000700030400010002"));
        world.start("ask");
        world.pass(limitMs);
        QVERIFY(world.done.contains(QStringLiteral("open")));
    }
    world.done.clear();
    if (function != QLatin1String("disconnect")) {
        world.engine.stop(1, world.nowUs);
        world.run();
    }
    if (function == QLatin1String("connect")) {
        world.startConnect();
    } else if (!function.isEmpty()) {
        world.start("disconnect");
    }
    QTEST(world.done.join(QLatin1Char(' ')), "decided");
}

void EngineTest::aConnectThatIsStoppedInAReportOpensNothing()
{
    World world;
    world.connectNow();
    world.engine.stop(1, world.nowUs);
    world.run();
    world.stopsWhenDown = true;
    world.startConnect();
    QCOMPARE(world.done.join(QLatin1Char(' ')), QStringLiteral("down close"));
}

// Whoever waits for the connection hears why there is none, once for each reason; orders do not
// wait for later attempts.
void EngineTest::aFirstAttemptIsTriedAgain()
{
    LinkOptions options;
    options.keepTrying = true;
    World world;
    world.engine.setLinkOptions(options);
    world.startConnect();
    world.start("ask");
    for (const char* why : {"refused", "refused", "no route"}) {
        world.engine.linkFailed(QString::fromLatin1(why), world.nowUs);
        world.run();
        world.pass(30000);
    }
    world.start("ask");
    QVERIFY2(world.failure.text.contains(QLatin1String("no route); it is being tried again")),
             qPrintable(world.failure.text));
    world.engine.linkOpened(world.nowUs);
    world.pass(0);
    world.start("ask");
    QCOMPARE(world.done.join(QLatin1Char(' ')),
             QStringLiteral("open close answer not_connected end not_connected open close open "
                            "close answer not_connected open end not_connected up answer well "
                            "request"));
    QCOMPARE(world.engine.statistics().reconnects, 0u);
}

// A new link is worth a try only when the device says nothing at all any more.
void EngineTest::numberedRequestsKeepTheLink()
{
    LinkOptions options;
    options.transactionIds = true;
    options.unit = 5;
    World world;
    world.engine.setLinkOptions(options);
    world.connectNow();
    for (int i = 0; i < 15; ++i) {
        world.start("ask");
        world.pass(limitMs);
        QCOMPARE(world.failure.code, Code::Timeout);
        QCOMPARE(world.failure.unitId, 5);
        QCOMPARE(world.done.contains(QStringLiteral("down")), i == 14);
        if (i == 6) {
            world.engine.dropped(13, 1); // a late reply: it lives
        }
    }
}

// What runs is chosen when the turn is there, and the limit of a request is its own.
void EngineTest::onASharedLinkItAsksInTurn()
{
    LinkOptions options;
    options.share = true;
    World world;
    world.engine.setLinkOptions(options);
    world.connectNow();
    world.start(
        "ask", {{QStringLiteral("recurrent"), true}, {QStringLiteral("recurrentInterval"), 60000}});
    world.pass(3 * limitMs);
    world.start("ask");
    world.engine.turnCame({true, 0, 0}, world.nowUs);
    world.run();
    world.receive(bytes("aabb000000070003040001000a"));
    world.engine.linkReplaced(QStringLiteral("spoiled"), world.nowUs);
    world.run();
    world.engine.linkOpened(world.nowUs);
    world.run();
    world.engine.turnCame({true, 0, 0}, world.nowUs);
    world.run();
    world.pass(limitMs);
    world.engine.linkFailed(QStringLiteral("refused"), world.nowUs);
    world.run();
    QCOMPARE(world.done.join(QLatin1Char(' ')),
             QStringLiteral(
                 "ask-turn request give-turn end well ask-turn open ask-turn request reply-missing "
                 "open answer timeout close device:502 disconnected: refused down "
                 "answer not_connected"));
}

// Its orders fail at once, and what comes after the pause goes out.
void EngineTest::aSilentUnitIsPaused()
{
    LinkOptions options;
    options.share = true;
    options.transactionIds = true;
    options.unit = 7;
    World world;
    world.engine.setLinkOptions(options);
    world.connectNow();
    const auto ask = [&world] {
        world.start("ask");
        world.engine.turnCame({true, 0, 0}, world.nowUs); // others are answered
        world.run();
    };
    for (int i = 0; i < 4; ++i) {
        ask();
        world.pass(limitMs);
        QCOMPARE(world.failure.code, Code::Timeout);
        if (i >= 2) {
            world.start("ask");
            QVERIFY2(world.failure.text.startsWith(QStringLiteral("unit 7 at device:502 has not")),
                     qPrintable(world.failure.text));
            world.pass(800); // longer than the second pause
        }
    }
    ask();
    world.receive(bytes("aabb000000070003040001000a"));
    QCOMPARE(world.done.filter(QStringLiteral("asked less often")).size(), 1);
    QCOMPARE(world.done.filter(QStringLiteral("answers again")).size(), 1);
    QCOMPARE(world.done.count(QStringLiteral("request")), 5);
}

void EngineTest::aReplyThatNobodyWantsHoldsUpNoDisconnect()
{
    World world;
    world.connectNow();
    world.engine.stop(world.start("ask"), world.nowUs);
    world.engine.stop(1, world.nowUs);
    world.start("disconnect");
    QCOMPARE(world.done.join(QLatin1Char(' ')), QStringLiteral("request close down end well"));
}

void EngineTest::aKeepAliveTakesAnyReplyAsLife()
{
    World world;
    world.engine.setKeepAlive(QStringLiteral("ask"), {}, 5000);
    world.connectNow();
    world.pass(5000);
    world.receive(bytes("aabb00000003008302"));
    QCOMPARE(world.done, QStringList(QStringLiteral("request")));
    world.pass(5000);
    world.pass(limitMs);
    QCOMPARE(world.done.mid(1, 2),
             (QStringList{QStringLiteral("request"), QStringLiteral("close")}));
}

void EngineTest::theQueueIsBounded()
{
    World world;
    for (int i = 0; i < 1024; ++i) {
        QVERIFY(world.engine.add(1, QStringLiteral("ask"), {}, limitMs, 0, world.failure.text));
    }
    QVERIFY(!world.engine.add(1, QStringLiteral("ask"), {}, limitMs, 0, world.failure.text));
    QVERIFY(world.failure.text.contains(QLatin1String("queue is full (1024 orders)")));
}

// So that many workers which lose a device at once do not come back at once.
void EngineTest::delaysAreSpread()
{
    constexpr int workers = 100;
    QMap<int, int> firstTenths;
    for (int seed = 1; seed <= workers; ++seed) {
        Backoff backoff(static_cast<unsigned>(seed) * 2654435761U);
        for (const int most : {375, 750, 1500, 3000, 6000, 12000, 22500, 22500}) {
            const int delayMs = backoff.nextDelayMs();
            QVERIFY(delayMs >= most / 3 && delayMs <= most);
            firstTenths[delayMs * 10 / most] += most == 375 ? 1 : 0;
        }
    }
    QVERIFY(*std::max_element(firstTenths.cbegin(), firstTenths.cend()) < workers / 4);
}

QTEST_GUILESS_MAIN(EngineTest)

#include "tst_engine.moc"
