#include "echo_device.h"
#include "recorded_object.h"

#include <QThread>

#include <atomic>
#include <memory>
#include <vector>

namespace {

constexpr int orders = 200;

// A class, and not QThread::create(), into which the thread sanitizer does not look.
class Line : public QThread
{
public:
    QList<quint64> ids; // of the orders that were answered right
    std::atomic<bool> done{false}; // hands them over: Qt's own wait() is not seen either

protected:
    void run() override
    {
        EchoDevice device;
        RecordedObject object;
        object.connectTo(device.serverPort(), QStringLiteral("localhost"));
        for (int i = 0; i < orders; ++i) {
            const quint64 id = object.start(
                ask,
                {{QStringLiteral("value"), QString::number(i)}, {QStringLiteral("limit"), 8000}});
            if (object.valueOf(id) == QVariant(i)) {
                ids.append(id);
            }
        }
        done = true;
    }
};

} // namespace

/// Plug-in objects on threads of their own know nothing of each other. What they share all the
/// same, such as the order's numbers, is for the thread sanitizer to see.
class ThreadsTest : public QObject
{
    Q_OBJECT

private slots:
    void objectsOnThreeThreads();
};

void ThreadsTest::objectsOnThreeThreads()
{
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < 3; ++i) {
        lines.push_back(std::make_unique<Line>());
        lines.back()->start();
    }
    QSet<quint64> ids;
    for (const auto& line : lines) {
        QVERIFY(line->wait(60000) && line->done);
        QCOMPARE(line->ids.size(), orders);
        ids.unite(QSet<quint64>(line->ids.cbegin(), line->ids.cend()));
    }
    QCOMPARE(ids.size(), 3 * orders);
}

QTEST_GUILESS_MAIN(ThreadsTest)

#include "tst_threads.moc"
