#include <runtime/loop/deadline.h>
#include <runtime/loop/spin.h>
#include <runtime/loop/step.h>

#include <QtTest>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace {

/// A descriptor that is always ready to be read, with what is to be done then.
class Ready
{
public:
    explicit Ready(std::function<void()> action) : m_action(std::move(action))
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends.data()) != 0
            || ::write(m_ends[1], "x", 1) != 1
            || !m_reactor->watch(m_ends[0], EPOLLIN, {this, &Ready::handle})) {
            qFatal("no socket pair");
        }
    }
    ~Ready()
    {
        m_reactor->unwatch(m_ends[0]);
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }
    Q_DISABLE_COPY(Ready)

    int descriptor() const { return m_ends[0]; }
    /// It is ready no more.
    void take()
    {
        char taken = 0;
        QCOMPARE(::read(m_ends[0], &taken, 1), ssize_t(1));
    }

private:
    void handle(quint32) { m_action(); }

    std::shared_ptr<Reactor> m_reactor = Reactor::ofThisThread();
    std::array<int, 2> m_ends{};
    std::function<void()> m_action;
};

class Alarm
{
public:
    explicit Alarm(std::function<void()> action) : m_action(std::move(action)) { }
    void setIn(qint64 us) { m_deadline.set(steadyNowUs() + us); }

private:
    void handle() { m_action(); }

    std::function<void()> m_action;
    Deadline m_deadline{{this, &Alarm::handle}};
};

/// Does what it does about its descriptor in two steps, if others are ready as well.
class Walker
{
public:
    Walker(int number, QList<int>& made) : m_number(number), m_made(made) { }

    std::function<void()> onSecond = [] {};

private:
    void handleReady()
    {
        m_ready.take();
        m_made.append(m_number);
        if (m_step.isWanted()) {
            m_step.set();
        }
    }

    void makeSecond()
    {
        m_made.append(-m_number);
        onSecond();
    }

    int m_number;
    QList<int>& m_made;
    Step m_step{{this, &Walker::makeSecond}};
    Ready m_ready{[this] { handleReady(); }};
};

struct Awaited
{
    bool ask()
    {
        ++asked;
        return true;
    }

    int asked = 0;
};

} // namespace

class LoopTest : public QObject
{
    Q_OBJECT

private slots:
    void nobodyStarvesOfManyThatAreReady();
    void whatAHandlerEndsIsNotCalled_data();
    void whatAHandlerEndsIsNotCalled();
    void deadlinesComeInOrderAndNeverEarly();
    void aDeadlineThatIsAlwaysDueLeavesRoom();
    void othersComeWhileAHandlerRunsALoop();
    void everybodyMakesAStepBeforeAnybodysNext_data();
    void everybodyMakesAStepBeforeAnybodysNext();
    void whatIsSlowIsLookedForLessAndLess();
    void spinningLeavesRoom();
};

// More than the system names at a time, each of them ready in every turn.
void LoopTest::nobodyStarvesOfManyThatAreReady()
{
    constexpr int many = 200;
    std::vector<int> calls(many);
    std::vector<std::unique_ptr<Ready>> all;
    for (int& count : calls) {
        all.push_back(std::make_unique<Ready>([&count] { ++count; }));
    }
    for (int turn = 0; turn < 20; ++turn) {
        QCoreApplication::processEvents();
    }
    const auto [least, most] = std::minmax_element(calls.cbegin(), calls.cend());
    QVERIFY2(*least >= *most - 1 && *least >= 3, QByteArray::number(*least));
}

void LoopTest::whatAHandlerEndsIsNotCalled_data()
{
    QTest::addColumn<bool>("replaced");
    QTest::newRow("ended") << false;
    QTest::newRow("its descriptor's number used again") << true;
}

// Both are ready in the same turn; the handler of the first ends the second.
void LoopTest::whatAHandlerEndsIsNotCalled()
{
    QFETCH(bool, replaced);
    int first = 0;
    int second = 0;
    std::unique_ptr<Ready> victim;
    const auto action = [&] { ++second; };
    const Ready killer([&] {
        if (++first == 1) {
            const int number = victim->descriptor();
            victim.reset();
            victim.reset(replaced ? new Ready(action) : nullptr);
            QVERIFY(!replaced || victim->descriptor() == number);
        }
    });
    victim = std::make_unique<Ready>(action);
    while (first == 0) {
        QCoreApplication::processEvents();
    }
    QCOMPARE(second, 0);
}

void LoopTest::deadlinesComeInOrderAndNeverEarly()
{
    QList<int> come;
    bool early = false;
    std::vector<std::unique_ptr<Alarm>> alarms;
    for (const int us : {9500, 300, 4700, 0}) {
        const qint64 dueUs = steadyNowUs() + us;
        alarms.push_back(std::make_unique<Alarm>([&come, &early, us, dueUs] {
            come.append(us);
            early = early || steadyNowUs() < dueUs;
        }));
        alarms.back()->setIn(us);
    }
    QTRY_COMPARE(come, (QList<int>{0, 300, 4700, 9500}));
    QVERIFY(!early);
}

void LoopTest::aDeadlineThatIsAlwaysDueLeavesRoom()
{
    int times = 0;
    Alarm* itself = nullptr;
    Alarm alarm([&] {
        if (++times < 1000) {
            itself->setIn(0);
        }
    });
    itself = &alarm;
    alarm.setIn(0);
    QThread::msleep(1);
    QCoreApplication::processEvents();
    QVERIFY2(times <= 2, QByteArray::number(times));
}

// What a slot does while it shows a dialog, say.
void LoopTest::othersComeWhileAHandlerRunsALoop()
{
    bool hasCome = false;
    bool withinLoop = false;
    Alarm other([&] { hasCome = true; });
    Alarm first([&] { withinLoop = QTest::qWaitFor([&] { return hasCome; }); });
    first.setIn(0);
    other.setIn(20000);
    QTRY_VERIFY(hasCome);
    QVERIFY(withinLoop);
}

void LoopTest::everybodyMakesAStepBeforeAnybodysNext_data()
{
    QTest::addColumn<QString>("inTheFirst");
    QTest::addColumn<QList<int>>("made");
    const QList<int> afterLoop{1, 2, 3, -1, -2, -3, 0};
    QTest::newRow("nothing") << QString() << QList<int>{1, 2, 3, -1, -2, -3};
    QTest::newRow("a loop that sleeps") << "sleeps" << afterLoop;
    QTest::newRow("a loop, and a descriptor is ready")
        << "ready" << QList<int>{1, 2, 3, -1, -2, -3, 4, 0};
    QTest::newRow("a loop, and a deadline comes") << "due" << afterLoop;
    QTest::newRow("the end of another") << "ends" << QList<int>{1, 2, 3, -1, -3};
}

// What the others have to do yet must not wait for a slot that shows a dialog, say.
void LoopTest::everybodyMakesAStepBeforeAnybodysNext()
{
    QFETCH(QString, inTheFirst);
    QFETCH(QList<int>, made);
    QList<int> seen;
    std::vector<std::unique_ptr<Walker>> walkers;
    walkers.reserve(3);
    for (int number = 1; number <= 3; ++number) {
        walkers.push_back(std::make_unique<Walker>(number, seen));
    }
    std::unique_ptr<Ready> ready;
    Alarm alarm([] {});
    walkers.front()->onSecond = [&] {
        if (inTheFirst == "ends") {
            walkers[1].reset();
            return;
        }
        if (inTheFirst == "sleeps") {
            QEventLoop loop;
            QTimer::singleShot(20, &loop, &QEventLoop::quit);
            loop.exec();
        } else if (inTheFirst == "ready") {
            ready = std::make_unique<Ready>([&] {
                ready->take();
                seen.append(4);
            });
            QCoreApplication::processEvents();
        } else if (inTheFirst == "due") {
            alarm.setIn(0);
            QThread::msleep(2);
            QCoreApplication::processEvents();
        } else {
            return;
        }
        seen.append(0);
    };
    for (int turn = 0; turn < 10; ++turn) {
        QCoreApplication::processEvents();
    }
    QCOMPARE(seen, made);
}

// Of a thousand replies that come late and two that come soon.
void LoopTest::whatIsSlowIsLookedForLessAndLess()
{
    const auto awaited = [](bool came, Spin& spin, int count) {
        QList<int> looked;
        for (int i = 1; i <= count; ++i) {
            if (spin.begin()) {
                looked.append(i);
                spin.end(came);
            }
        }
        return looked;
    };
    Awaited always;
    Spin spin({&always, &Awaited::ask});
    QCOMPARE(awaited(false, spin, 1033), (QList<int>{1, 3, 6, 11, 20, 37, 70, 135, 264, 521, 778}));
    QCOMPARE(awaited(true, spin, 3), (QList<int>{2, 3}));
    QCOMPARE(awaited(false, spin, 4), (QList<int>{1, 3}));
}

// Something is ready each time that it looks, and is asked for again.
void LoopTest::spinningLeavesRoom()
{
    Awaited always;
    Spin spin({&always, &Awaited::ask});
    const Ready ready([&] { spin.expect(); });
    QEventLoop loop;
    bool wasPosted = false;
    QTimer::singleShot(1, &loop, &QEventLoop::quit);
    QMetaObject::invokeMethod(
        &loop, [&] { wasPosted = true; }, Qt::QueuedConnection);
    loop.exec();
    QVERIFY(wasPosted && always.asked > 0);
}

QTEST_GUILESS_MAIN(LoopTest)

#include "tst_loop.moc"
