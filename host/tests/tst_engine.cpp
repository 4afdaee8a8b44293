#include <runtime/engine/backoff.h>
#include <runtime/engine/worker_engine.h>

#include "table.h"

#include <functional>

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
    explicit World(const LinkOptions& options = {})
    {
        for (const char* function : {"connect", "disconnect", "ask"}) {
            engine.declareFunction(function);
        }
        engine.setLinkOptions(options);
    }

    quint64 start(const char* function, const ParameterMap& parameters = {})
    {
        QString refusal;
        const bool taken = engine.add(++lastId, function, parameters, limitMs, nowUs, refusal);
        run();
        return taken ? lastId : 0;
    }

    quint64 startConnect(ParameterMap parameters = {})
    {
        parameters.insert("host", "device");
        parameters.insert("port", 502);
        return start("connect", parameters);
    }

    void connectNow()
    {
        startConnect();
        engine.linkOpened(nowUs);
        run();
        done.clear();
    }

    void receive(const char* hex)
    {
        const QByteArray bytes = QByteArray::fromHex(hex);
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

    /// One step of a row in the table.
    void act(const QString& step, const QString& with)
    {
        const QByteArray bytes = QByteArray::fromHex(with.toLatin1());
        const QHash<QString, std::function<void()>> steps{
            {"connected", [this] { connectNow(); }},
            {"connect", [this] { startConnect(); }},
            {"disconnect", [this] { start("disconnect"); }},
            {"ask", [this] { start("ask"); }},
            {"listen",
             [&] {
                 start("ask", {{"recurrent", true}, {"recurrentInterval", with}});
             }},
            {"keep-alive", [this] { engine.setKeepAlive("ask", {}, 5000); }},
            {"stop", [&] { engine.stop(with.toULongLong(), nowUs); }},
            {"stops-when-down", [this] { stopsWhenDown = true; }},
            {"sends-nothing", [this] { writes = false; }},
            {"dropped", [&] { engine.dropped(with.toInt(), 1); }},
            {"waits", [&] { waiting = with.toInt(); }},
            {"arrives", [&] { inTime = bytes; }},
            {"receive", [&] { engine.received(bytes.constData(), bytes.size(), nowUs); }},
            {"open", [this] { engine.linkOpened(nowUs); }},
            {"fail", [&] { engine.linkFailed(with, nowUs); }},
            {"replace", [&] { engine.linkReplaced(with, nowUs); }},
            {"turn",
             [this] {
                 engine.turnCame({true, 0, 0}, nowUs);
             }},
            {"pass", [&] { pass(with.toInt()); }},
            {"forget", [this] { done.clear(); }},
        };
        if (step == "late") { // and what comes next is seen by the look
            nowUs += with.toLongLong() * 1000;
            engine.timePassed(nowUs);
            return;
        }
        steps.value(step)();
        run();
    }

    void noteRest()
    {
        const WorkerStatistics counted = engine.statistics();
        const std::pair<quint64, const char*> counts[]{{counted.droppedBytes, "dropped"},
                                                       {counted.ticksSkipped, "skipped"},
                                                       {counted.reconnects, "reconnects"},
                                                       {engine.currentId(), "is carried out"}};
        for (const auto& [count, name] : counts) {
            if (count > 0) {
                done.append(QString::number(count) + ' ' + name);
            }
        }
    }

    WorkerEngine engine{1};
    qint64 nowUs = 1000000;
    quint64 lastId = 0;
    QStringList done; ///< what the engine has decided
    OrderFailure failure; ///< of the last outcome
    ParameterMap reply; ///< of the last outcome
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
            engine.judged({{"doneOk", true}, {"values", "from the hook"}}, nowUs);
            break;
        case Kind::TellOutcome:
            note(action.outcome);
            break;
        case Kind::TellState:
            done.append(action.flag ? "up" : "down");
            if (stopsWhenDown) {
                engine.stop(lastId, nowUs);
            }
            break;
        case Kind::OpenLink:
            waiting = 0;
            done.append("open");
            break;
        case Kind::CloseLink:
            done.append("close");
            break;
        case Kind::AskTurn:
            done.append("ask-turn");
            break;
        case Kind::GiveTurn:
            done.append(action.flag ? "give-turn" : "reply-missing");
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
        done.append((outcome == Outcome::Answer ? "answer " : "end ")
                    + (failure ? OrderFailure::codeName(failure.code) : "well"));
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
            done.append("request");
            engine.requestLeft(request.constData(), request.size());
            engine.expectReply();
        }
        engine.functionReturned(succeeded, result, nowUs);
    }
};

LinkOptions linkOptions(const QString& words)
{
    LinkOptions options;
    options.keepTrying = words.contains("keep-trying");
    options.share = words.contains("share");
    options.transactionIds = words.contains("ids");
    options.unit = words.contains("unit") ? 7 : -1;
    return options;
}

} // namespace

/// What a worker decides, without a world.
class EngineTest : public QObject
{
    Q_OBJECT

private slots:
    void decisions_data();
    void decisions();
    void replies_data();
    void replies();
    void keepAlivesThatAreRefused_data();
    void keepAlivesThatAreRefused();
    void nothingIsToldOfWhatIsStopped();
    void theQueueIsBounded();
    void delaysAreSpread();
};

void EngineTest::decisions_data() { addRows("decisions"); }

void EngineTest::decisions()
{
    QFETCH(QStringList, cells);
    World world(linkOptions(cells[0]));
    for (const QString& step : cells[1].split("; ")) {
        world.act(step.section(' ', 0, 0), step.section(' ', 1));
    }
    world.noteRest();
    QCOMPARE(world.done.join(' '), cells[2]);
    QVERIFY2(world.failure.text.contains(cells.value(3)), qPrintable(world.failure.text));
}

void EngineTest::replies_data() { addRows("replies"); }

void EngineTest::replies()
{
    QFETCH(QStringList, cells);
    const QStringList wanted = cells[1].split(' ');
    World world;
    world.connectNow();
    world.start("ask");
    for (const QString& segment : cells[0].split(' ')) {
        world.receive(segment.toLatin1());
    }
    QVERIFY2(world.done.contains("end " + wanted[0]), qPrintable(cells[1]));
    QCOMPARE(world.failure.exceptionCode, wanted.value(1).toInt());
    QCOMPARE(world.reply.contains("values"), wanted[0] == "well");
    QCOMPARE(world.done.contains("open"), wanted[0] == "bad_reply");
    QCOMPARE(world.failure.unitId, world.failure ? wanted.value(2).toInt() : -1);
}

void EngineTest::keepAlivesThatAreRefused_data() { addRows("keep_alives"); }

void EngineTest::keepAlivesThatAreRefused()
{
    QFETCH(QStringList, cells);
    World world;
    world.startConnect({{"keepAliveFunction", cells[0]}, {"keepAliveFunctionRegister", cells[1]}});
    QCOMPARE(world.failure.code, cells[2].isEmpty() ? Code::None : Code::Usage);
    QVERIFY2(world.failure.text.contains(cells[2]), qPrintable(world.failure.text));
}

void EngineTest::nothingIsToldOfWhatIsStopped()
{
    World world;
    world.connectNow();
    const quint64 id = world.start("ask");
    world.engine.received(request.constData(), 0, world.nowUs);
    world.engine.linkEnded("cut", world.nowUs); // decided, but not told yet
    QVERIFY(world.engine.stop(id, world.nowUs));
    QVERIFY(!world.engine.stop(id + 1, world.nowUs));
    WorkerAction action;
    while (world.engine.next(action, world.nowUs)) {
        QVERIFY(action.kind != Kind::TellOutcome || action.id != id);
    }
}

void EngineTest::theQueueIsBounded()
{
    World world;
    for (int i = 0; i < 1024; ++i) {
        QVERIFY(world.engine.add(1, "ask", {}, limitMs, 0, world.failure.text));
    }
    QVERIFY(!world.engine.add(1, "ask", {}, limitMs, 0, world.failure.text));
    QVERIFY(world.failure.text.contains("queue is full (1024 orders)"));
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
