// An hour of trouble in fast motion: orders whose device answers exceptions and nonsense, falls
// silent and hangs up. Prints the resident memory after the first tenth and at the end, and fails
// when it grew by more than the limit.
//
// Usage: soak MODULE [ORDERS]

#include "fixtures/fixture_plugin.h"
#include "scripted_device.h"

#include <plugin_management/d_orders.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QFile>
#include <QRandomGenerator>

#include <cstdio>
#include <cstdlib>

namespace {

using Step = ScriptedDevice::Step;

constexpr long limitKb = 1024;
constexpr int silentLimitMs = 2;

struct Mix
{
    Step step;
    int perThousand;
};

// Of the driver module's own reads; each time-out would cost its 2 s.
constexpr std::array<Mix, 6> moduleMix{{{Step::Exception2, 600},
                                        {Step::OtherFunction, 20},
                                        {Step::ImplausibleHeader, 20},
                                        {Step::Twice, 20},
                                        {Step::ByteByByte, 2},
                                        {Step::CloseInstead, 1}}};
// Of the small driver's, whose time limit is ours to set.
constexpr std::array<Mix, 4> silentMix{
    {{Step::Never, 20}, {Step::Late, 20}, {Step::Exception2, 600}, {Step::HalfThenClose, 1}}};

template <std::size_t size>
Step draw(const std::array<Mix, size>& mix, QRandomGenerator& random)
{
    int number = random.bounded(1000);
    for (const Mix& part : mix) {
        if (number < part.perThousand) {
            return part.step;
        }
        number -= part.perThousand;
    }
    return Step::Answer;
}

long residentKb()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return file.readAll().split(' ').at(1).toLong() * 4;
}

/// Gives one order after the other to one plug-in object.
class Stream : public QObject
{
public:
    Stream(DAbstractPlugin* plugin, const QString& command, QVariantMap parameters,
           std::function<Step()> nextStep)
        : m_plugin(plugin), m_command(command), m_parameters(std::move(parameters))
    {
        m_plugin->initPluginCommands();
        m_device.lateMs = silentLimitMs + 1;
        m_device.beforeStep = [this, nextStep = std::move(nextStep)] {
            m_device.requests.clear();
            m_device.script = {nextStep()};
        };
        connect(m_plugin->orders(), &DOrders::sigOrderFinished, this,
                [this](const DOrder& order) { finished(order); });
        m_connection =
            m_plugin->orders()->start(QStringLiteral("connect"),
                                      {{QStringLiteral("host"), QStringLiteral("127.0.0.1")},
                                       {QStringLiteral("port"), m_device.port()},
                                       {QStringLiteral("timeout"), 1000},
                                       {QStringLiteral("limit"), 1000}});
        next();
    }

    int done = 0;
    std::function<void()> onDone;
    WorkerStatistics statistics() const { return m_plugin->worker()->statistics(); }

private:
    void next() { m_plugin->orders()->start(m_command, m_parameters); }

    void finished(const DOrder& order)
    {
        if (order.state == DOrder::State::Stopped) {
            return; // the end of the program
        }
        if (order.id == m_connection) {
            std::fprintf(stderr, "the connection ended: %s\n", qPrintable(order.failure.text));
            std::exit(1);
        }
        ++done;
        onDone();
        // While the device is away, orders fail at once: those would prove nothing.
        const bool away = order.failure.code == OrderFailure::Code::NotConnected;
        QTimer::singleShot(away ? 20 : 0, this, [this] { next(); });
    }

    ScriptedDevice m_device;
    std::unique_ptr<DAbstractPlugin> m_plugin;
    QString m_command;
    QVariantMap m_parameters;
    quint64 m_connection = 0;
};

void print(const char* name, const Stream& stream)
{
    const WorkerStatistics s = stream.statistics();
    std::printf("%s: %d orders: %llu done, %llu exceptions, %llu bad replies, %llu time-outs, "
                "%llu not connected, %llu reconnects\n",
                name, stream.done, s.done, s.exceptions, s.badReplies, s.timeouts, s.notConnected,
                s.reconnects);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_NO_GLIB", "1"); // the event loop of driver-host, for all
    QCoreApplication application(argc, argv);
    const int orders = argc > 2 ? std::atoi(argv[2]) : 200000;
    const DPluginLoader::Result module =
        DPluginLoader::load(QString::fromLocal8Bit(argc > 1 ? argv[1] : ""));
    if (!module || orders < 10) {
        std::fprintf(stderr, "usage: soak MODULE [ORDERS, 10 or more]\n%s\n",
                     qPrintable(module.text));
        return 2;
    }
    // The module writes a line for every rejected reply; here they are expected.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});

    QRandomGenerator random(1);
    Stream modbus(dynamic_cast<DAbstractPlugin*>(module.root->createInstance(QUuid::createUuid())),
                  QStringLiteral("read"),
                  {{QStringLiteral("register"), 100},
                   {QStringLiteral("registerType"), QStringLiteral("holdingRegisters")}},
                  [&random] { return draw(moduleMix, random); });
    Stream silent(new FixturePlugin, QStringLiteral("ask"),
                  {{QStringLiteral("value"), 7}, {QStringLiteral("limit"), silentLimitMs}},
                  [&random] { return draw(silentMix, random); });

    long earlyKb = 0;
    const auto look = [&] {
        const int done = modbus.done + silent.done;
        if (done == orders / 10) {
            earlyKb = residentKb();
        } else if (done == orders) {
            application.quit();
        }
    };
    modbus.onDone = look;
    silent.onDone = look;
    application.exec();

    const long lateKb = residentKb();
    print("module", modbus);
    print("small driver", silent);
    std::printf("resident: %ld kB after a tenth, %ld kB at the end\n", earlyKb, lateKb);
    return lateKb - earlyKb <= limitKb ? 0 : 1;
}
