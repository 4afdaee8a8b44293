#include "fixtures/fixture_plugin.h"

#include <plugin_management/d_orders.h>

#include <QtTest>

#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace {

class Command : public FixtureCommand
{
public:
    Command() : FixtureCommand(QStringLiteral("ask"), QString(), {}, nullptr) { }
    using FixtureCommand::addInstruction;
    using FixtureCommand::commandFinish;
    using FixtureCommand::commandUpdateResult;
    using FixtureCommand::stopTheInstruction;
};

struct Bodies
{
    FixturePlugin plugin;
    Command command;
};

using Act = void (*)(Bodies&);

void sayAndExit(QtMsgType, const QMessageLogContext&, const QString& text)
{
    const QByteArray words = text.toUtf8();
    ::_exit(::write(STDOUT_FILENO, words.constData(), size_t(words.size())) > 0 ? 1 : 2);
}

// What a process says that calls objects of a thread that is not its own, and ends of it.
QByteArray lastWords(Act act)
{
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        qInstallMessageHandler(sayAndExit);
        QThread elsewhere; // need not run
        auto* bodies = new Bodies;
        bodies->plugin.initPluginCommands();
        bodies->plugin.orders()->moveToThread(&elsewhere);
        bodies->plugin.worker()->moveToThread(&elsewhere);
        bodies->command.moveToThread(&elsewhere);
        act(*bodies);
        ::_exit(0);
    }
    ::close(ends[1]);
    std::array<char, 4096> words{};
    const auto size = ::read(ends[0], words.data(), words.size());
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return {words.data(), int(size)};
}

} // namespace

Q_DECLARE_METATYPE(Act)

class ThreadRuleTest : public QObject
{
    Q_OBJECT

private slots:
    void aCallFromAnotherThreadEndsTheProgram_data();
    void aCallFromAnotherThreadEndsTheProgram();
};

void ThreadRuleTest::aCallFromAnotherThreadEndsTheProgram_data()
{
    QTest::addColumn<Act>("act");
    const auto row = [](const char* name, Act act) { QTest::newRow(name) << act; };
    row("DOrders::start", [](Bodies& b) { b.plugin.orders()->start(QStringLiteral("ask"), {}); });
    row("DOrders::stop", [](Bodies& b) { b.plugin.orders()->stop(1); });
    row("DOrders::find", [](Bodies& b) { b.plugin.orders()->find(1); });
    row("DOrders::shutDown", [](Bodies& b) { b.plugin.orders()->shutDown(); });
    row("DAbstractWorker::sltStartOrder", [](Bodies& b) {
        QString refusal;
        b.plugin.worker()->sltStartOrder(1, QStringLiteral("ask"), {}, 0, refusal);
    });
    row("DAbstractWorker::sltStopOrder", [](Bodies& b) { b.plugin.worker()->sltStopOrder(1); });
    row("DAbstractWorker::statistics", [](Bodies& b) { b.plugin.worker()->statistics(); });
    row("DAbstractCommand::addInstruction",
        [](Bodies& b) { b.command.addInstruction({}, QStringLiteral("ask"), {}, 0, {}); });
    row("DAbstractCommand::stopTheInstruction", [](Bodies& b) { b.command.stopTheInstruction(1); });
    row("DAbstractCommand::commandUpdateResult",
        [](Bodies& b) { b.command.commandUpdateResult(QStringLiteral("value"), 1); });
    row("DAbstractCommand::commandFinish", [](Bodies& b) {
        bool ok = true;
        b.command.commandFinish(ok);
    });
}

void ThreadRuleTest::aCallFromAnotherThreadEndsTheProgram()
{
    QFETCH(Act, act);
    const QByteArray expected = QByteArray("ASSERT failure in ") + QTest::currentDataTag()
        + "(): \"called on another thread";
    const QByteArray words = lastWords(act);
    QVERIFY2(words.startsWith(expected), words.constData());
}

QTEST_GUILESS_MAIN(ThreadRuleTest)

#include "tst_thread_rule.moc"
