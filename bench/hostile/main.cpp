// Devices that misbehave in every way that the simulator knows, each with four orders in flight
// through the loaded module: reads, listens and writes of all types, of which some are stopped.
//
// Usage: hostile MODULE [SECONDS [DEVICES [SEED]]]
//
// It fails when
// - a value is handed out that is not that of the very registers asked for, unless the device gave
//   it, on the same connection, to another recent request of the same function and with a reply of
//   the same size (a copy of that one: requests carry no number of their own to tell it by);
// - a write is reported as done that the device has not carried out;
// - an order has no end, or two;
// - an order is reported as timed out whose good reply had long been there; now and then the
//   program pauses for longer than the time limit;
// - a read is content with a reply in which nothing could be taken for good;
// - descriptors are left open, or resident memory grows by more than 8 MB from a third of the time
//   to the end, or by more than 16 MB in between.

#include "asker.h"
#include "device.h"
#include "process_memory.h"

#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QDir>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

constexpr int everyReply = 5;
constexpr int lateMs = 2100; // the module's time limit is 2000 ms
constexpr int longPauseMs = 2500;
constexpr int longPauseEachMs = 30000;
constexpr int patienceMs = 60000;
constexpr long growthLimitKb = 8192;
constexpr long peakLimitKb = 16384;

struct Job
{
    DAbstractPlugin* root = nullptr;
    int seconds = 600;
    int devices = 50;
    int seed = 1;
};

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::NoDotAndDotDot | QDir::Files | QDir::System)
        .size();
}

/// The devices, on a thread of their own.
class Devices
{
public:
    explicit Devices(const Job& job)
    {
        m_anchor.moveToThread(&m_thread);
        m_thread.start();
        call([this, &job] { make(job); });
    }

    ~Devices()
    {
        call([this] { m_devices.clear(); });
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY(Devices)

    const std::vector<std::unique_ptr<HostileDevice>>& all() const { return m_devices; }

private:
    void call(const std::function<void()>& action)
    {
        QMetaObject::invokeMethod(&m_anchor, action, Qt::BlockingQueuedConnection);
    }

    void make(const Job& job)
    {
        Misbehaviour misbehaviour;
        for (const MisbehaviourKind& kind : misbehaviourKinds) {
            misbehaviour.kinds.push_back(&kind);
        }
        misbehaviour.every = everyReply;
        misbehaviour.delayMs = lateMs;
        for (int i = 0; i < job.devices; ++i) {
            misbehaviour.seed = job.seed * 1000 + i;
            m_devices.push_back(std::make_unique<HostileDevice>(misbehaviour));
            if (!m_devices.back()->listen()) {
                std::fprintf(stderr, "hostile: no port left to listen on\n");
                std::exit(2);
            }
        }
    }

    QThread m_thread;
    QObject m_anchor;
    std::vector<std::unique_ptr<HostileDevice>> m_devices;
};

class Run : public QObject
{
public:
    explicit Run(const Job& job) : m_devices(job), m_job(job)
    {
        int seed = job.seed;
        for (const auto& device : m_devices.all()) {
            m_askers.push_back(std::make_unique<Asker>(job.root, *device, m_findings, ++seed));
        }
        connect(&m_pause, &QTimer::timeout, this, [] { QThread::msleep(longPauseMs); });
        m_pause.start(qMin(longPauseEachMs, job.seconds * 1000 / 2));
        QTimer::singleShot(job.seconds * 1000 / 3, this, [this] { beginWatch(); });
        QTimer::singleShot(job.seconds * 1000, this, [this] { endWatch(); });
    }

    /// The exit code.
    int report()
    {
        m_findings.print();
        std::printf("%llu orders of %d devices in %d s; resident %ld kB after a third, %ld kB at "
                    "the end, %ld kB at the most\n",
                    m_orders, m_job.devices, m_job.seconds, m_earlyKb, m_lateKb, m_mostKb);
        return m_findings.failed() ? 1 : 0;
    }

private:
    void beginWatch()
    {
        m_earlyKb = ProcessMemory::residentKb();
        ProcessMemory::forgetPeak();
    }

    void endWatch()
    {
        m_lateKb = ProcessMemory::residentKb();
        m_mostKb = ProcessMemory::peakKb();
        const bool grew =
            m_lateKb - m_earlyKb > growthLimitKb || m_mostKb - m_earlyKb > peakLimitKb;
        if (WATCHES_MEMORY && grew) {
            m_findings.fail("memory grew",
                            QStringLiteral("by %1 kB, and by %2 kB at the most")
                                .arg(m_lateKb - m_earlyKb)
                                .arg(m_mostKb - m_earlyKb));
        }
        m_pause.stop();
        for (const auto& device : m_devices.all()) {
            device->behave();
        }
        for (const auto& asker : m_askers) {
            asker->finish();
        }
        await([this] { return inFlight() == 0; }, [this] { endConnections(); });
    }

    int inFlight() const
    {
        int sum = 0;
        for (const auto& asker : m_askers) {
            sum += asker->inFlight();
        }
        return sum;
    }

    void endConnections()
    {
        for (const auto& asker : m_askers) {
            m_orders += asker->given();
            for (const QString& order : asker->open()) {
                m_findings.fail("an order had no end", order);
            }
        }
        m_askers.clear();
        await([this] { return connections() == 0; },
              [this] {
                  if (connections() > 0) {
                      m_findings.fail("connections are left", QString::number(connections()));
                  }
                  QCoreApplication::quit();
              });
    }

    int connections() const
    {
        int sum = 0;
        for (const auto& device : m_devices.all()) {
            sum += device->openConnections();
        }
        return sum;
    }

    // Goes on as soon as it is so, or when it takes longer than all patience.
    void await(const std::function<bool()>& reached, const std::function<void()>& goOn)
    {
        auto* look = new QTimer(this);
        connect(look, &QTimer::timeout, look, [=, until = steadyMs() + patienceMs] {
            if (reached() || steadyMs() > until) {
                look->deleteLater();
                look->stop();
                goOn();
            }
        });
        look->start(10);
    }

    Findings m_findings;
    Devices m_devices;
    const Job m_job;
    QTimer m_pause;
    std::vector<std::unique_ptr<Asker>> m_askers;
    quint64 m_orders = 0;
    long m_earlyKb = 0;
    long m_lateKb = 0;
    long m_mostKb = 0;
};

// What Qt opens with its first thread and its first connection stays open.
void setUpQt()
{
    QThread thread;
    thread.start();
    thread.quit();
    thread.wait();
    QTcpServer server;
    QTcpSocket socket;
    if (server.listen(QHostAddress::LocalHost)) {
        socket.connectToHost(QHostAddress::LocalHost, server.serverPort());
        socket.waitForConnected();
    }
}

Job jobFrom(const QStringList& arguments)
{
    const auto number = [&](int index, int otherwise) {
        return arguments.size() > index ? arguments.at(index).toInt() : otherwise;
    };
    Job job;
    job.seconds = number(2, job.seconds);
    job.devices = number(3, job.devices);
    job.seed = number(4, job.seed);
    const DPluginLoader::Result module = DPluginLoader::load(arguments.value(1));
    if (!module || job.seconds < 1 || job.devices < 1) {
        std::fprintf(stderr, "usage: hostile MODULE [SECONDS [DEVICES [SEED]]]\n%s\n",
                     qPrintable(module.text));
        std::exit(2);
    }
    job.root = module.root;
    return job;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const Job job = jobFrom(QCoreApplication::arguments());
    // The module writes a line for every rejected reply; here they are expected.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});

    setUpQt();
    const int descriptors = openDescriptors();
    auto run = std::make_unique<Run>(job);
    QCoreApplication::exec();
    const int exitCode = run->report();
    run.reset();
    const int left = openDescriptors() - descriptors;
    std::printf("%d descriptors more than before\n", left);
    return left == 0 ? exitCode : 1;
}
