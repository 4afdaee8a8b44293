// What fifty healthy devices have to suffer from five that send without end: the round trips of
// their reads without and with those beside them, on one thread, and the resident memory. Prints
// the medians of the rounds' 99th percentiles and their ratio, for reads every 20 ms and for one
// read after the other.
//
// Usage: fairness MODULE [ROUNDS]; it starts the devices, bench_device and device-simulator, from
// its own folder. Two processors are enough, when no other work is done on them.

#include "process_memory.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sched.h>
#include <vector>

namespace {

constexpr int healthyDevices = 50;
constexpr int floodingDevices = 5;
constexpr int ordersToFlooder = 4;
constexpr int intervalMs = 20;
constexpr int afterFailureMs = 20;
constexpr int warmUpMs = 300;
constexpr int roundMs = 1000;
constexpr int registers = 10;

/// Devices, in a process of their own.
class Devices
{
public:
    Devices(const QString& program, const QStringList& arguments)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationDirPath() + QLatin1Char('/') + program,
                        arguments);
        m_process.waitForReadyRead();
        m_port = m_process.readLine().trimmed().split(':').last().toUShort();
        if (m_port == 0) {
            std::fprintf(stderr, "fairness: no %s here; build it\n", qPrintable(program));
            std::exit(2);
        }
    }

    ~Devices()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY(Devices)

    quint16 port() const { return m_port; }

    /// Has them run only while nothing else would: real ones have processors of their own and
    /// take none of it from the healthy devices or the host.
    void yieldToAll()
    {
        const sched_param none{};
        sched_setscheduler(static_cast<pid_t>(m_process.processId()), SCHED_IDLE, &none);
    }

private:
    QProcess m_process;
    quint16 m_port = 0;
};

/// A plug-in object with a connection.
class Asker : public QObject
{
public:
    Asker(DAbstractPlugin* root, quint16 port)
        : m_plugin(dynamic_cast<DAbstractPlugin*>(root->createInstance(QUuid::createUuid())))
    {
        m_plugin->initPluginCommands();
        m_plugin->orders()->start(QStringLiteral("connect"),
                                  {{QStringLiteral("host"), QStringLiteral("127.0.0.1")},
                                   {QStringLiteral("port"), port}});
    }

protected:
    DOrders* orders() const { return m_plugin->orders(); }

    quint64 read() const
    {
        static const ParameterMap parameters{
            {QStringLiteral("register"), 100},
            {QStringLiteral("registerType"), QStringLiteral("holdingRegisters")},
            {QStringLiteral("dataSize"), registers}};
        return orders()->start(QStringLiteral("read"), parameters);
    }

private:
    std::unique_ptr<DAbstractPlugin> m_plugin;
};

/// Reads, and tells how long each read takes.
class Reader : public Asker
{
public:
    /// \a pace in milliseconds, 0 for one read after the other.
    Reader(DAbstractPlugin* root, quint16 port, int pace, std::vector<double>& tookUs)
        : Asker(root, port), m_pace(pace), m_tookUs(tookUs)
    {
        connect(orders(), &DOrders::sigOrderFinished, this, &Reader::takeEnd);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            if (m_reading == 0) {
                next();
            }
        });
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.start(qMax(1, pace));
    }

private:
    void next()
    {
        m_clock.start();
        m_reading = read();
    }

    void takeEnd(const DOrder& order)
    {
        m_reading = 0;
        if (order.state == DOrder::State::Failed) {
            std::fprintf(stderr, "fairness: a healthy device: %s\n",
                         qPrintable(order.failure.text));
        } else if (order.state == DOrder::State::Done) {
            m_tookUs.push_back(static_cast<double>(m_clock.nsecsElapsed()) / 1000);
            if (m_pace == 0) {
                next();
            }
        }
    }

    const int m_pace;
    std::vector<double>& m_tookUs;
    QTimer m_timer;
    QElapsedTimer m_clock;
    quint64 m_reading = 0;
};

/// Keeps some orders in flight, whatever becomes of them.
class Insister : public Asker
{
public:
    /// \a floods counts what it has brought about: a flood follows each reply.
    Insister(DAbstractPlugin* root, quint16 port, int& floods) : Asker(root, port)
    {
        connect(orders(), &DOrders::sigOrderFinished, this, [this, &floods](const DOrder& order) {
            const bool failed = order.state != DOrder::State::Done;
            floods += failed ? 0 : 1;
            QTimer::singleShot(failed ? afterFailureMs : 0, this, [this] { read(); });
        });
        for (int i = 0; i < ordersToFlooder; ++i) {
            read();
        }
    }
};

void wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

class Measurement
{
public:
    Measurement(DAbstractPlugin* root, int rounds)
        : m_root(root), m_rounds(rounds), m_healthy(QStringLiteral("bench_device"), {}),
          m_flooding(QStringLiteral("device-simulator"),
                     {QStringLiteral("--port=0"), QStringLiteral("--quiet"),
                      QStringLiteral("--misbehave=flood"), QStringLiteral("--every=1")})
    {
        m_flooding.yieldToAll();
    }

    /// By turns, so that what disturbs the machine disturbs both.
    void compare(const char* what, int pace)
    {
        std::vector<double> without;
        std::vector<double> with;
        m_floods = 0;
        for (int i = 0; i < m_rounds; ++i) {
            without.push_back(measure(pace, false));
            with.push_back(measure(pace, true));
        }
        const double times = median(with) / median(without);
        std::printf("%s: 99 %% of the round trips within %.0f us, beside %d floods within %.0f "
                    "us: %.2f times as long\n",
                    what, median(without), m_floods, median(with), times);
    }

private:
    double measure(int pace, bool beside)
    {
        std::vector<double> tookUs;
        std::vector<std::unique_ptr<Asker>> askers;
        for (int i = 0; i < healthyDevices; ++i) {
            askers.push_back(std::make_unique<Reader>(m_root, m_healthy.port(), pace, tookUs));
        }
        for (int i = 0; beside && i < floodingDevices; ++i) {
            askers.push_back(std::make_unique<Insister>(m_root, m_flooding.port(), m_floods));
        }
        wait(warmUpMs);
        tookUs.clear();
        wait(roundMs);
        return quantile(tookUs, 99);
    }

    static double median(std::vector<double>& values) { return quantile(values, 50); }

    static double quantile(std::vector<double>& values, std::size_t percent)
    {
        if (values.empty()) {
            return 0;
        }
        const auto at = values.begin() + static_cast<std::ptrdiff_t>(values.size() * percent / 100);
        std::nth_element(values.begin(), at, values.end());
        return *at;
    }

    DAbstractPlugin* m_root;
    int m_rounds;
    int m_floods = 0;
    Devices m_healthy;
    Devices m_flooding; // one thread for all of them: more would only take the processor away
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const DPluginLoader::Result module =
        DPluginLoader::load(QString::fromLocal8Bit(argc > 1 ? argv[1] : ""));
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 7;
    if (!module || rounds < 1) {
        std::fprintf(stderr, "usage: fairness MODULE [ROUNDS]\n%s\n", qPrintable(module.text));
        return 2;
    }
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Measurement measurement(module.root, rounds);
    measurement.compare("reads every 20 ms", intervalMs);
    measurement.compare("read after read", 0);
    std::printf("resident: %ld kB, %ld kB at the most\n", ProcessMemory::residentKb(),
                ProcessMemory::peakKb());
    return 0;
}
