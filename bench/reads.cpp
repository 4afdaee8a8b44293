// The same reads through one client after another's manner:
//   bench_reads KIND PORT QUANTITY COUNT [MODULE [LINK_OPTION=VALUE]...]
// KIND is socket (a bare blocking socket), libmodbus, qtserialbus, driver (an order through the
// loaded module and the host runtime, from its start to its end) or driver-text (such an order as
// people type it: its numbers are texts, and what has a default is left out). Every read is
// checked. Prints the median of their times and the processor time of one, in microseconds. Counts
// for callgrind: see instrumentation.h.

#include "instrumentation.h"
#include "peers/usage.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>
#include <QModbusDataUnit>
#include <QModbusReply>
#include <QModbusTcpClient>

#include <arpa/inet.h>
#include <modbus.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

struct Job
{
    quint16 port = 0;
    int quantity = 1;
    int count = 0;
    QString module;
    QStringList link;
    bool isText = false;
};

constexpr int firstRegister = 100;

[[noreturn]] void fail(const char* why)
{
    std::fprintf(stderr, "bench_reads: %s\n", why);
    std::exit(1);
}

/// The time of each read, of which it prints the median: one that was disturbed does not count.
class Stopwatch
{
public:
    explicit Stopwatch(int count) : m_count(count), m_isCounted(runsOnValgrind())
    {
        m_us.reserve(static_cast<std::size_t>(count));
        startCounting();
        m_processorUs = processorUs();
        m_last = Clock::now();
    }

    void lap()
    {
        if (!m_isCounted) {
            const auto now = Clock::now();
            m_us.push_back(std::chrono::duration<double, std::micro>(now - m_last).count());
            m_last = now;
        }
    }

    void print()
    {
        stopCounting();
        const double spentUs = (processorUs() - m_processorUs) / static_cast<double>(m_count);
        const auto middle = m_us.begin() + static_cast<std::ptrdiff_t>(m_us.size() / 2);
        std::nth_element(m_us.begin(), middle, m_us.end());
        std::printf("%.3f %.3f\n", m_us.empty() ? 0 : *middle, spentUs);
    }

private:
    using Clock = std::chrono::steady_clock;

    int m_count;
    bool m_isCounted;
    double m_processorUs = 0;
    std::vector<double> m_us;
    Clock::time_point m_last;
};

void readBySocket(const Job& job)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(job.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        fail("no connection");
    }
    const std::array<unsigned char, 12> request{0xAA, 0xBB,
                                                0,    0,
                                                0,    6,
                                                0,    3,
                                                0,    firstRegister,
                                                0,    static_cast<unsigned char>(job.quantity)};
    std::array<unsigned char, 300> reply;
    Stopwatch watch(job.count);
    for (int i = 0; i < job.count; ++i) {
        if (::send(fd, request.data(), request.size(), 0) != 12
            || ::recv(fd, reply.data(), reply.size(), 0) != 9 + 2 * job.quantity
            || reply[10] != firstRegister) {
            fail("a wrong reply");
        }
        watch.lap();
    }
    watch.print();
    ::close(fd);
}

void readByLibmodbus(const Job& job)
{
    modbus_t* context = modbus_new_tcp("127.0.0.1", job.port);
    modbus_set_slave(context, 0);
    if (modbus_connect(context) != 0) {
        fail("no connection");
    }
    std::array<quint16, 125> values;
    Stopwatch watch(job.count);
    for (int i = 0; i < job.count; ++i) {
        if (modbus_read_registers(context, firstRegister, job.quantity, values.data())
                != job.quantity
            || values[0] != firstRegister) {
            fail("a wrong reply");
        }
        watch.lap();
    }
    watch.print();
    modbus_close(context);
    modbus_free(context);
}

void readByQtSerialBus(const Job& job)
{
    QModbusTcpClient client;
    client.setConnectionParameter(QModbusDevice::NetworkAddressParameter,
                                  QStringLiteral("127.0.0.1"));
    client.setConnectionParameter(QModbusDevice::NetworkPortParameter, job.port);
    std::unique_ptr<Stopwatch> watch;
    int done = 0;
    const QModbusDataUnit unit(QModbusDataUnit::HoldingRegisters, firstRegister,
                               static_cast<quint16>(job.quantity));
    std::function<void()> next = [&] {
        QModbusReply* reply = client.sendReadRequest(unit, 0);
        QObject::connect(reply, &QModbusReply::finished, reply, [&, reply] {
            if (reply->error() != QModbusDevice::NoError
                || reply->result().value(0) != firstRegister) {
                fail("a wrong reply");
            }
            reply->deleteLater();
            watch->lap();
            if (++done < job.count) {
                next();
            } else {
                watch->print();
                QCoreApplication::quit();
            }
        });
    };
    QObject::connect(&client, &QModbusClient::stateChanged, &client, [&](auto state) {
        if (state == QModbusDevice::ConnectedState) {
            watch = std::make_unique<Stopwatch>(job.count);
            next();
        }
    });
    client.connectDevice();
    QCoreApplication::exec();
}

void setLinkOptions(DAbstractPlugin& device, const QStringList& given)
{
    ParameterMap values;
    for (const QString& each : given) {
        values.insert(each.section(QLatin1Char('='), 0, 0), each.section(QLatin1Char('='), 1));
    }
    LinkOptions options;
    LinkOptionFault fault;
    QString refusal;
    if (!readLinkOptions(values, options, fault) || !device.setLinkOptions(options, &refusal)) {
        fail(qPrintable(fault.option + fault.text + refusal));
    }
}

ParameterMap parametersOf(const Job& job)
{
    ParameterMap parameters{{QStringLiteral("register"), firstRegister},
                            {QStringLiteral("registerType"), QStringLiteral("holdingRegisters")},
                            {QStringLiteral("dataSize"), job.quantity}};
    if (job.isText) {
        parameters[QStringLiteral("register")] = QString::number(firstRegister);
        parameters.remove(QStringLiteral("dataSize"));
    }
    return parameters;
}

/// Reads again and again, as driver-host hears of orders.
class Reader : private OrderListener
{
public:
    Reader(const Job& job, DOrders& orders)
        : m_job(job), m_orders(orders), m_parameters(parametersOf(job))
    {
        orders.setListener(this);
        orders.start(QStringLiteral("connect"),
                     {{QStringLiteral("host"), QStringLiteral("127.0.0.1")},
                      {QStringLiteral("port"), job.port}});
    }
    virtual ~Reader() { m_orders.setListener(nullptr); }
    Q_DISABLE_COPY(Reader)

private:
    void read() { m_orders.start(m_read, m_parameters); }

    void orderResult(quint64 id, const QString& name, const QVariant& value) override
    {
        Q_UNUSED(id)
        Q_UNUSED(name)
        if (!m_watch) { // "connected"
            m_watch = std::make_unique<Stopwatch>(m_job.count);
            read();
        } else if (value.toList().value(0).toInt() != firstRegister) {
            fail("a wrong reply");
        }
    }

    void orderTrouble(quint64 id, const OrderFailure& failure) override
    {
        Q_UNUSED(id)
        fail(qPrintable(failure.text));
    }

    void orderFinished(const DOrder& order) override
    {
        if (order.state != DOrder::State::Done) {
            fail(qPrintable(order.failure.text));
        }
        m_watch->lap();
        if (++m_done < m_job.count) {
            read();
            return;
        }
        m_watch->print();
        std::fflush(stdout);
        std::_Exit(0); // the connect order would end as stopped, which is no failure here
    }

    const Job& m_job;
    DOrders& m_orders;
    const QString m_read = QStringLiteral("read");
    const ParameterMap m_parameters;
    std::unique_ptr<Stopwatch> m_watch;
    int m_done = 0;
};

void readByDriver(const Job& job)
{
    const DPluginLoader::Result module = DPluginLoader::load(job.module);
    if (!module) {
        fail(qPrintable(module.text));
    }
    const std::unique_ptr<DAbstractPlugin> device(
        dynamic_cast<DAbstractPlugin*>(module.root->createInstance(QUuid::createUuid())));
    device->initPluginCommands();
    setLinkOptions(*device, job.link);
    const Reader reader(job, *device->orders());
    QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_NO_GLIB", "1"); // the event loop of driver-host, for all
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString kind = arguments.value(1);
    const Job job{arguments.value(2).toUShort(),
                  arguments.value(3).toInt(),
                  arguments.value(4).toInt(),
                  arguments.value(5),
                  arguments.mid(6),
                  kind == QLatin1String("driver-text")};
    if (job.port == 0 || job.quantity < 1 || job.quantity > 125 || job.count < 1
        || (job.isText && job.quantity != 1)) {
        fail("usage: bench_reads socket|libmodbus|qtserialbus|driver|driver-text PORT QUANTITY "
             "COUNT [MODULE "
             "[LINK_OPTION=VALUE]...]");
    }
    if (kind == QLatin1String("socket")) {
        readBySocket(job);
    } else if (kind == QLatin1String("libmodbus")) {
        readByLibmodbus(job);
    } else if (kind == QLatin1String("qtserialbus")) {
        readByQtSerialBus(job);
    } else if (kind.startsWith(QLatin1String("driver"))) {
        readByDriver(job);
    } else {
        fail("unknown kind of client");
    }
    return 0;
}
