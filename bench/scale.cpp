// Many devices in one process:
//   bench_scale KIND WORK PORT DEVICES THREADS SECONDS [MODULE]
// KIND is driver (plug-in objects of the loaded module) or qtserialbus. WORK is a number of
// milliseconds (every device is listened to at that interval, all started at once) or read (the
// next read when the last one has ended). The devices are spread over the threads. Prints one JSON
// object about a window of SECONDS after a warm-up.

#include "instrumentation.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QModbusDataUnit>
#include <QModbusReply>
#include <QModbusTcpClient>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

constexpr int firstRegister = 100;
constexpr int registers = 10;
constexpr int warmUpMs = 300;

struct Job
{
    QString kind;
    int intervalMs = 0; ///< 0: read after read
    quint16 port = 0;
    int devices = 0;
    int threads = 1;
    double seconds = 0;
    DAbstractPlugin* root = nullptr;
};

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

/// What the devices of one thread have seen. Each thread writes its own.
struct alignas(64) Tally
{
    std::atomic<quint64> orders{0};
    std::atomic<bool> measuring{false};
    std::vector<quint32> latenessUs; ///< of the ticks in the window
    double roundTripSumUs = 0; ///< of roundTrips of them
    double roundTrips = 0;

    void keepLateness(qint64 us)
    {
        if (measuring.load(std::memory_order_relaxed)) {
            latenessUs.push_back(static_cast<quint32>(std::max<qint64>(0, us)));
        }
    }

    void keepRoundTrips(double sumUs, double count)
    {
        roundTripSumUs += sumUs;
        roundTrips += count;
    }

    void add(const Tally& other)
    {
        latenessUs.insert(latenessUs.end(), other.latenessUs.cbegin(), other.latenessUs.cend());
        keepRoundTrips(other.roundTripSumUs, other.roundTrips);
    }
};

/// When ticks were due, of one device. Ticks that pass until a result are served by none.
class Ticks
{
public:
    void begin(int intervalMs)
    {
        m_intervalUs = qint64{1000} * intervalMs;
        m_startUs = nowUs() / 1000 * 1000; // the driver counts whole milliseconds
    }

    /// How late the result that has just come is, from when the tick was due.
    qint64 result()
    {
        const qint64 now = nowUs() - m_startUs;
        qint64 late = now - m_next * m_intervalUs;
        if (late < 0) { // the tick that was due at the end of the result before
            late += m_intervalUs;
        }
        m_next = now / m_intervalUs + 1;
        return late;
    }

private:
    qint64 m_intervalUs = 0;
    qint64 m_startUs = 0;
    qint64 m_next = 0;
};

class Client
{
public:
    Client(const Job& job, Tally& tally) : m_job(job), m_tally(tally) { }
    virtual ~Client() = default;
    Q_DISABLE_COPY(Client)

    virtual void open(const std::function<void()>& onOpen) = 0;
    virtual void begin() = 0;

protected:
    void done(int value)
    {
        if (value != firstRegister) {
            fail(QStringLiteral("a wrong reply"));
        }
        if (m_job.intervalMs > 0) {
            m_tally.keepLateness(m_ticks.result());
        }
        m_tally.orders.fetch_add(1, std::memory_order_relaxed);
    }

    const Job& m_job;
    Tally& m_tally;
    Ticks m_ticks;
};

class DriverClient : public Client, private OrderListener
{
public:
    DriverClient(const Job& job, Tally& tally)
        : Client(job, tally),
          m_plugin(dynamic_cast<DAbstractPlugin*>(job.root->createInstance(QUuid::createUuid())))
    {
        m_plugin->initPluginCommands();
        m_orders = m_plugin->orders();
        m_orders->setListener(this);
    }

    ~DriverClient() override
    {
        const WorkerStatistics seen = m_plugin->worker()->statistics();
        const auto count = static_cast<double>(seen.done);
        m_tally.keepRoundTrips(static_cast<double>(seen.roundTripMeanUs) * count, count);
        m_orders->setListener(nullptr);
    }

    void open(const std::function<void()>& onOpen) override
    {
        m_onOpen = onOpen;
        m_connectId = m_orders->start(QStringLiteral("connect"),
                                      {{QStringLiteral("host"), QStringLiteral("127.0.0.1")},
                                       {QStringLiteral("port"), m_job.port}});
    }

    void begin() override
    {
        m_ticks.begin(m_job.intervalMs);
        start();
    }

private:
    static ParameterMap parametersFor(int intervalMs)
    {
        ParameterMap parameters{
            {QStringLiteral("register"), firstRegister},
            {QStringLiteral("registerType"), QStringLiteral("holdingRegisters")},
            {QStringLiteral("dataSize"), registers}};
        if (intervalMs > 0) {
            parameters.insert(QStringLiteral("recurrentInterval"), intervalMs);
        }
        return parameters;
    }

    void start()
    {
        static const ParameterMap parameters = parametersFor(m_job.intervalMs);
        static const QString listen = QStringLiteral("listen");
        static const QString read = QStringLiteral("read");
        QString refusal;
        if (m_orders->start(m_job.intervalMs > 0 ? listen : read, parameters, &refusal) == 0) {
            fail(refusal);
        }
    }

    void orderResult(quint64 id, const QString& name, const QVariant& value) override
    {
        Q_UNUSED(name)
        if (id != m_connectId) {
            done(value.toList().value(0).toInt());
        } else if (value.toBool()) {
            m_onOpen();
        }
    }

    void orderTrouble(quint64 id, const OrderFailure& failure) override
    {
        Q_UNUSED(id)
        fail(failure.text);
    }

    void orderFinished(const DOrder& order) override
    {
        if (order.state != DOrder::State::Done) {
            fail(order.failure.text);
        }
        start();
    }

    std::unique_ptr<DAbstractPlugin> m_plugin;
    DOrders* m_orders = nullptr;
    std::function<void()> m_onOpen;
    quint64 m_connectId = 0;
};

class QtClient : public Client
{
public:
    QtClient(const Job& job, Tally& tally) : Client(job, tally)
    {
        m_client.setConnectionParameter(QModbusDevice::NetworkAddressParameter,
                                        QStringLiteral("127.0.0.1"));
        m_client.setConnectionParameter(QModbusDevice::NetworkPortParameter, job.port);
    }

    ~QtClient() override { m_closing = true; }

    void open(const std::function<void()>& onOpen) override
    {
        QObject::connect(&m_client, &QModbusClient::stateChanged, &m_client,
                         [onOpen](QModbusDevice::State state) {
                             if (state == QModbusDevice::ConnectedState) {
                                 onOpen();
                             }
                         });
        m_client.connectDevice();
    }

    void begin() override
    {
        m_ticks.begin(m_job.intervalMs);
        if (m_job.intervalMs > 0) {
            m_timer.setTimerType(Qt::PreciseTimer);
            QObject::connect(&m_timer, &QTimer::timeout, &m_client, [this] {
                if (!m_busy) {
                    read();
                }
            });
            m_timer.start(m_job.intervalMs);
        }
        read();
    }

private:
    void read()
    {
        m_busy = true;
        const qint64 sentUs = nowUs();
        QModbusReply* reply = m_client.sendReadRequest(
            {QModbusDataUnit::HoldingRegisters, firstRegister, registers}, 0);
        QObject::connect(reply, &QModbusReply::finished, reply, [this, reply, sentUs] {
            if (m_closing) {
                return;
            }
            if (reply->error() != QModbusDevice::NoError) {
                fail(reply->errorString());
            }
            m_tally.keepRoundTrips(static_cast<double>(nowUs() - sentUs), 1);
            m_busy = false;
            done(reply->result().value(0));
            reply->deleteLater();
            if (m_job.intervalMs == 0) {
                read();
            }
        });
    }

    bool m_busy = false;
    bool m_closing = false;
    QTimer m_timer;
    QModbusTcpClient m_client; // the first to go: it ends its replies
};

/// The devices of one thread, and that thread.
class Group
{
public:
    Group(const Job& job, int devices, std::function<void()> onReady)
        : m_job(job), m_devices(devices), m_onReady(std::move(onReady))
    {
        m_anchor.moveToThread(&m_thread);
        m_thread.start();
        call([this] { openAll(); });
    }

    ~Group() { stop(); }
    Q_DISABLE_COPY(Group)

    /// Ends devices and thread; the tally is whole from then on.
    void stop()
    {
        call([this] {
            m_clients.clear();
            m_thread.quit();
        });
        m_thread.wait();
    }

    void begin()
    {
        call([this] {
            for (const auto& client : m_clients) {
                client->begin();
            }
        });
    }

    Tally tally;

private:
    void call(const std::function<void()>& action)
    {
        QMetaObject::invokeMethod(&m_anchor, action, Qt::QueuedConnection);
    }

    void openAll()
    {
        for (int i = 0; i < m_devices; ++i) {
            if (m_job.kind == QLatin1String("driver")) {
                m_clients.push_back(std::make_unique<DriverClient>(m_job, tally));
            } else {
                m_clients.push_back(std::make_unique<QtClient>(m_job, tally));
            }
            m_clients.back()->open([this] {
                if (++m_open == m_devices) {
                    m_onReady();
                }
            });
        }
    }

    const Job& m_job;
    int m_devices;
    std::function<void()> m_onReady;
    int m_open = 0;
    std::vector<std::unique_ptr<Client>> m_clients;
    QObject m_anchor;
    QThread m_thread;
};

double residentKb()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return file.readAll().split(' ').at(1).toDouble() * 4;
}

/// User and system time of this process, microseconds.
double processorUs()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto us = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
    };
    return us(usage.ru_utime) + us(usage.ru_stime);
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
        fail(QStringLiteral("usage: bench_scale driver|qtserialbus read|INTERVAL PORT DEVICES "
                            "THREADS SECONDS [MODULE]"));
    }
    if (job.kind == QLatin1String("driver")) {
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
    qputenv("QT_NO_GLIB", "1"); // the event loop of driver-host, for all
    QCoreApplication application(argc, argv);
    const Job job = jobFrom(QCoreApplication::arguments());
    allowDescriptors(job.devices);
    reachDevice(job.port);
    const Measurement measurement(job);
    return QCoreApplication::exec();
}
