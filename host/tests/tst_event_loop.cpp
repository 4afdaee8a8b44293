#include <plugin_management/d_event_dispatcher.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <memory>

namespace {

class Pipe
{
public:
    Pipe()
    {
        if (::pipe2(m_ends.data(), O_NONBLOCK | O_CLOEXEC) != 0) {
            qFatal("no pipe");
        }
    }
    ~Pipe()
    {
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }
    Q_DISABLE_COPY(Pipe)

    int out() const { return m_ends[0]; }
    int in() const { return m_ends[1]; }
    void put() const { QCOMPARE(::write(in(), "x", 1), ssize_t(1)); }
    void take() const
    {
        char byte = 0;
        QCOMPARE(::read(out(), &byte, 1), ssize_t(1));
    }

private:
    std::array<int, 2> m_ends{};
};

} // namespace

/// What any event loop must do, done by ours.
class EventLoopTest : public QObject
{
    Q_OBJECT

private slots:
    void timersFireInTheOrderOfTheirTimes();
    void aTimerNeverFiresEarly();
    void aMissedTickIsNotMadeUpFor();
    void aTimerThatIsAlwaysDueLeavesRoom();
    void aTimerDoesNotFireWhileItIsBeingHandled();
    void timersThatAHandlerEndsDoNotFire();
    void timersAreListedAndTellWhatIsLeft();
    void anIdleTimerKeepsNobodyWaiting();
    void notifiersOfOneDescriptor();
    void whatAHandlerEndsIsNotCalled_data();
    void whatAHandlerEndsIsNotCalled();
    void filesAreAlwaysReady();
    void socketsCanBeLeftOut();
    void anotherThreadWakesIt();
    void anotherThreadEndsIt();
    void socketsTalk();
};

void EventLoopTest::timersFireInTheOrderOfTheirTimes()
{
    QList<int> fired;
    QEventLoop loop;
    for (const int ms : {30, 10, 20, 0}) {
        QTimer::singleShot(ms, Qt::PreciseTimer, &loop, [&fired, ms] { fired.append(ms); });
    }
    QTimer::singleShot(40, &loop, &QEventLoop::quit);
    loop.exec();
    QCOMPARE(fired, (QList<int>{0, 10, 20, 30}));
}

void EventLoopTest::aTimerNeverFiresEarly()
{
    QTimer busy; // keeps the loop looking
    busy.start(0);
    for (int i = 0; i < 20; ++i) {
        QEventLoop loop;
        QElapsedTimer elapsed;
        elapsed.start();
        QTimer::singleShot(3, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
        QVERIFY2(elapsed.nsecsElapsed() >= 3000000, QByteArray::number(elapsed.nsecsElapsed()));
    }
}

void EventLoopTest::aMissedTickIsNotMadeUpFor()
{
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    int ticks = 0;
    connect(&timer, &QTimer::timeout, this, [&] {
        if (++ticks == 1) {
            QThread::msleep(350);
        }
    });
    timer.start(100);
    while (ticks == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    QVERIFY2(ticks <= 2, QByteArray::number(ticks));
}

void EventLoopTest::aTimerThatIsAlwaysDueLeavesRoom()
{
    QTimer timer;
    int ticks = 0;
    connect(&timer, &QTimer::timeout, this, [&] {
        if (++ticks == 1000) {
            timer.stop();
        }
    });
    timer.start(0);
    QCoreApplication::processEvents();
    QCOMPARE(ticks, 1);
}

void EventLoopTest::aTimerDoesNotFireWhileItIsBeingHandled()
{
    QTimer slow;
    int depth = 0;
    int deepest = 0;
    int others = 0;
    connect(&slow, &QTimer::timeout, this, [&] {
        deepest = qMax(deepest, ++depth);
        QEventLoop nested;
        QTimer::singleShot(20, &nested, &QEventLoop::quit);
        nested.exec();
        --depth;
    });
    QTimer other;
    connect(&other, &QTimer::timeout, this, [&] { others += depth; });
    slow.start(1);
    other.start(1);
    QTest::qWait(60);
    slow.stop();
    QCOMPARE(deepest, 1);
    QVERIFY(others > 0); // they fire in the nested loop
}

void EventLoopTest::timersThatAHandlerEndsDoNotFire()
{
    auto victim = std::make_unique<QTimer>();
    QTimer killer;
    int fired = 0;
    connect(&killer, &QTimer::timeout, this, [&] {
        ++fired;
        victim.reset();
        killer.stop();
    });
    connect(victim.get(), &QTimer::timeout, this, [&] { fired += 100; });
    killer.start(1);
    victim->start(2);
    QThread::msleep(10); // both are due in the same turn
    QTest::qWait(20);
    QCOMPARE(fired, 1);
}

void EventLoopTest::timersAreListedAndTellWhatIsLeft()
{
    QTimer timer;
    timer.start(5000);
    auto* loop = QAbstractEventDispatcher::instance();
    const auto listed = loop->registeredTimers(&timer);
    QCOMPARE(listed.size(), 1);
    QVERIFY(timer.remainingTime() > 4000 && timer.remainingTime() <= 5000);
    QVERIFY(loop->unregisterTimers(&timer));
    QCOMPARE(loop->remainingTime(timer.timerId()), -1);
}

void EventLoopTest::anIdleTimerKeepsNobodyWaiting()
{
    QTimer later;
    later.start(60000);
    bool posted = false;
    QMetaObject::invokeMethod(
        this, [&] { posted = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QVERIFY(posted);
}

// Each is called for what it waits for only; and when the one that would always be called has gone,
// the loop sleeps, also after another thread has woken it.
void EventLoopTest::notifiersOfOneDescriptor()
{
    std::array<int, 2> ends{};
    QCOMPARE(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    QSocketNotifier read(ends[0], QSocketNotifier::Read);
    QSocketNotifier write(ends[0], QSocketNotifier::Write);
    int reads = 0;
    int writes = 0;
    connect(&read, &QSocketNotifier::activated, this, [&] { ++reads; });
    connect(&write, &QSocketNotifier::activated, this, [&] { ++writes; });
    QCoreApplication::processEvents();
    QCOMPARE(reads, 0);
    QCOMPARE(writes, 1);
    write.setEnabled(false);
    const std::unique_ptr<QThread> waker(QThread::create([this] {
        QMetaObject::invokeMethod(
            this, [] {}, Qt::QueuedConnection);
    }));
    QEventLoop loop;
    int turns = 0;
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &loop,
            [&] { ++turns; });
    QTimer::singleShot(100, &loop, &QEventLoop::quit);
    waker->start();
    loop.exec();
    waker->wait();
    QVERIFY2(turns < 20, QByteArray::number(turns));
    QCOMPARE(writes, 1);
    ::close(ends[0]);
    ::close(ends[1]);
}

void EventLoopTest::whatAHandlerEndsIsNotCalled_data()
{
    QTest::addColumn<bool>("replaced");
    QTest::newRow("ended") << false;
    QTest::newRow("its descriptor's number used again") << true;
}

// Both are ready in the same turn; the handler of the first ends the second.
void EventLoopTest::whatAHandlerEndsIsNotCalled()
{
    QFETCH(bool, replaced);
    const Pipe trigger;
    auto pipe = std::make_unique<Pipe>();
    std::unique_ptr<QSocketNotifier> notifier;
    int called = 0;
    const auto watch = [&] {
        notifier = std::make_unique<QSocketNotifier>(pipe->out(), QSocketNotifier::Read);
        connect(notifier.get(), &QSocketNotifier::activated, this, [&] { called += 100; });
    };
    QSocketNotifier first(trigger.out(), QSocketNotifier::Read);
    connect(&first, &QSocketNotifier::activated, this, [&] {
        ++called;
        trigger.take();
        const int number = pipe->out();
        notifier.reset();
        pipe.reset();
        if (replaced) {
            pipe = std::make_unique<Pipe>();
            QCOMPARE(pipe->out(), number);
            watch();
        }
    });
    watch();
    trigger.put();
    pipe->put();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    QCOMPARE(called, 1);
}

void EventLoopTest::filesAreAlwaysReady()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    QSocketNotifier notifier(file.handle(), QSocketNotifier::Read);
    int called = 0;
    connect(&notifier, &QSocketNotifier::activated, this, [&] {
        if (++called == 3) {
            notifier.setEnabled(false);
        }
    });
    QTRY_COMPARE(called, 3);
    QCoreApplication::processEvents();
    QCOMPARE(called, 3);
}

void EventLoopTest::socketsCanBeLeftOut()
{
    const Pipe pipe;
    pipe.put();
    QSocketNotifier notifier(pipe.out(), QSocketNotifier::Read);
    int called = 0;
    connect(&notifier, &QSocketNotifier::activated, this, [&] { pipe.take(), ++called; });
    bool posted = false;
    QMetaObject::invokeMethod(
        this, [&] { posted = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents(QEventLoop::ExcludeSocketNotifiers);
    QVERIFY(posted);
    QCOMPARE(called, 0);
    QTRY_COMPARE(called, 1);
}

void EventLoopTest::anotherThreadWakesIt()
{
    constexpr int times = 2000;
    int seen = 0;
    QEventLoop loop;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        for (int i = 0; i < times; ++i) {
            QMetaObject::invokeMethod(
                &loop,
                [&] {
                    if (++seen == times) {
                        loop.quit();
                    }
                },
                Qt::QueuedConnection);
            if (i % 100 == 0) {
                QThread::usleep(500); // long enough for the loop to fall asleep
            }
        }
    }));
    QTimer::singleShot(20000, &loop, [&] { loop.exit(1); });
    thread->start();
    QCOMPARE(loop.exec(), 0);
    QVERIFY(thread->wait());
    QCOMPARE(seen, times);
}

void EventLoopTest::anotherThreadEndsIt()
{
    for (int i = 0; i < 50; ++i) {
        QThread thread;
        thread.setEventDispatcher(new DEventDispatcher);
        thread.start();
        if (i % 2 != 0) {
            QThread::usleep(300); // long enough for its loop to fall asleep
        }
        thread.quit();
        QVERIFY(thread.wait(20000));
    }
}

void EventLoopTest::socketsTalk()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QByteArray received;
    connect(&server, &QTcpServer::newConnection, this, [&] {
        QTcpSocket* socket = server.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, this,
                [socket] { socket->write(socket->readAll()); });
    });
    QTcpSocket client;
    connect(&client, &QTcpSocket::connected, this, [&] { client.write(QByteArray(300000, 'x')); });
    connect(&client, &QTcpSocket::readyRead, this, [&] { received += client.readAll(); });
    client.connectToHost(QHostAddress::LocalHost, server.serverPort());
    QTRY_COMPARE(received.size(), 300000); // more than the system's buffers take at once
}

int main(int argc, char* argv[])
{
    QCoreApplication::setEventDispatcher(new DEventDispatcher);
    QCoreApplication application(argc, argv);
    EventLoopTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_event_loop.moc"
