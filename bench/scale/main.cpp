// Many devices in one process:
//   bench_scale KIND WORK PORT DEVICES THREADS SECONDS [MODULE]
// KIND is driver (plug-in objects of the loaded module), driver-glib (the same under GLib's event
// loop, as a host with windows has it) or qtserialbus. WORK is a number of milliseconds (every
// device is listened to at that interval, all started one after the other at once) or read (the
// next read when the last one has ended). The devices are spread over the threads. Prints one JSON
// object about a window of SECONDS after a warm-up.

#include "group.h"

#include "../instrumentation.h"
#include "../peers/usage.h"

#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

[[noreturn]] void fail(const QString& why)
{
    std::fprintf(stderr, "bench_scale: %s\n", qPrintable(why));
    std::_Exit(1);
}

qint64 nowUs()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

namespace {

constexpr int warmUpMs = 300;

double residentKb()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return file.readAll().split(' ').at(1).toDouble() * 4;
}

// Every device is a socket; a thread and the program itself take some more.
void allowDescriptors(int devices)
{
    const rlim_t needed = static_cast<rlim_t>(devices) + 64;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < needed) {
        fail(QStringLiteral("%1 devices need %2 file descriptors, and no more than %3 are allowed "
                            "here; raise the hard limit, such as with 'ulimit -Hn %2' as root")
                 .arg(devices)
                 .arg(needed)
                 .arg(limit.rlim_max));
    }
    limit.rlim_cur = std::max(limit.rlim_cur, needed);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

// Before any thread: what Qt Network sets up with its first connection is then no device's memory,
// and is not set up by two threads at once.
void reachDevice(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected()) {
        fail(QStringLiteral("no device at port %1: %2").arg(port).arg(socket.errorString()));
    }
}

double quantile(std::vector<quint32>& values, double part)
{
    if (values.empty()) {
        return 0;
    }
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

class Measurement : public QObject
{
public:
    explicit Measurement(const Job& job) : m_job(job), m_baseKb(residentKb())
    {
        for (int i = 0; i < job.threads; ++i) {
            const int share = job.devices / job.threads + (i < job.devices % job.threads ? 1 : 0);
            m_groups.push_back(std::make_unique<Group>(job, share, [this] {
                QMetaObject::invokeMethod(
                    this, [this] { groupReady(); }, Qt::QueuedConnection);
            }));
        }
    }

private:
    void groupReady()
    {
        if (++m_ready < m_job.threads) {
            return;
        }
        for (const auto& group : m_groups) {
            group->begin();
        }
        QTimer::singleShot(runsOnValgrind() ? 10 * warmUpMs : warmUpMs, this,
                           [this] { beginWindow(); });
    }

    void beginWindow()
    {
        m_runningKb = residentKb();
        setMeasuring(true);
        m_ordersBefore = orders();
        m_processorBefore = processorUs();
        m_startUs = nowUs();
        startCounting();
        QTimer::singleShot(static_cast<int>(m_job.seconds * 1000), Qt::PreciseTimer, this,
                           [this] { endWindow(); });
    }

    void endWindow()
    {
        stopCounting();
        const double spentUs = static_cast<double>(nowUs() - m_startUs);
        const double processor = processorUs() - m_processorBefore;
        const double count = orders() - m_ordersBefore;
        setMeasuring(false);
        if (count <= 0) {
            fail(QStringLiteral("not one read was answered in the window; make it longer"));
        }
        Tally all;
        for (const auto& group : m_groups) {
            group->stop();
            all.add(group->tally);
        }
        const QJsonObject result{
            {QStringLiteral("orders"), count},
            {QStringLiteral("ordersPerSecond"), count / spentUs * 1e6},
            {QStringLiteral("processorUsPerOrder"), processor / count},
            {QStringLiteral("latenessMedianUs"), quantile(all.latenessUs, 0.5)},
            {QStringLiteral("latenessP99Us"), quantile(all.latenessUs, 0.99)},
            {QStringLiteral("roundTripMeanUs"), all.roundTripSumUs / all.roundTrips},
            {QStringLiteral("kbPerDevice"), (m_runningKb - m_baseKb) / m_job.devices}};
        std::printf("%s\n", QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
        QCoreApplication::quit();
    }

    void setMeasuring(bool on)
    {
        for (const auto& group : m_groups) {
            group->tally.measuring = on;
        }
    }

    double orders() const
    {
        double sum = 0;
        for (const auto& group : m_groups) {
            sum += static_cast<double>(group->tally.orders.load());
        }
        return sum;
    }

    const Job& m_job;
    double m_baseKb;
    std::vector<std::unique_ptr<Group>> m_groups;
    int m_ready = 0;
    double m_runningKb = 0;
    double m_ordersBefore = 0;
    double m_processorBefore = 0;
    qint64 m_startUs = 0;
};

Job jobFrom(const QStringList& arguments)
{
    Job job;
    job.kind = arguments.value(1);
    job.intervalMs = arguments.value(2).toInt(); // 0 for "read"
    job.port = arguments.value(3).toUShort();
    job.devices = arguments.value(4).toInt();
    job.threads = arguments.value(5).toInt();
    job.seconds = arguments.value(6).toDouble();
    if (job.port == 0 || job.threads < 1 || job.devices < job.threads || job.seconds <= 0) {
        fail(QStringLiteral("usage: bench_scale driver|driver-glib|qtserialbus read|INTERVAL "
                            "PORT DEVICES THREADS SECONDS [MODULE]"));
    }
    if (job.kind.startsWith(QLatin1String("driver"))) {
        const DPluginLoader::Result module = DPluginLoader::load(arguments.value(7));
        if (!module) {
            fail(module.text);
        }
        job.root = module.root;
    }
    return job;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && qstrcmp(argv[1], "driver-glib") != 0) {
        qputenv("QT_NO_GLIB", "1"); // the event loop of driver-host
    }
    QCoreApplication application(argc, argv);
    const Job job = jobFrom(QCoreApplication::arguments());
    allowDescriptors(job.devices);
    reachDevice(job.port);
    const Measurement measurement(job);
    return QCoreApplication::exec();
}
