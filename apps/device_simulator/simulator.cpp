#include "simulator.h"
#include "demonstration_registers.h"
#include "register_text.h"

#include <common/failure.h>

#include <QTcpSocket>

#include <cstdio>
#include <functional>
#include <utility>

namespace {

class ClientObserver : public QModbusTcpConnectionObserver
{
public:
    using Callback = std::function<void(const QTcpSocket&)>;

    explicit ClientObserver(Callback callback) : m_callback(std::move(callback)) { }

    bool acceptNewConnection(QTcpSocket* client) override
    {
        m_callback(*client);
        return true;
    }

private:
    const Callback m_callback;
};

QString host(const QHostAddress& address)
{
    const bool bracketed = address.protocol() == QAbstractSocket::IPv6Protocol;
    return (bracketed ? QStringLiteral("[%1]") : QStringLiteral("%1")).arg(address.toString());
}

QString endpoint(const QHostAddress& address, quint16 port)
{
    return QStringLiteral("%1:%2").arg(host(address)).arg(port);
}

void log(const QString& line) { writeErrorLine(failureLine(line)); }

} // namespace

Simulator::Simulator(const Options& options) : m_options(options)
{
    m_timer.setInterval(DemonstrationRegisters::TickMs);
    connect(&m_timer, &QTimer::timeout, this,
            [this] { DemonstrationRegisters::move(m_server, ++m_tick); });
    if (!m_options.quiet) {
        logTraffic();
    }
}

bool Simulator::start()
{
    DemonstrationRegisters::fill(m_server);
    for (const QModbusDataUnit& preset : m_options.presets) {
        m_server.setData(preset);
    }
    if (!(m_options.misbehaviour ? listenBehindProxy() : listen())) {
        return false;
    }
    m_timer.start();
    std::printf("listening on %s\n", qUtf8Printable(endpoint(m_options.address, port())));
    std::fflush(stdout);
    return true;
}

void Simulator::logTraffic()
{
    // The server owns and deletes its observer.
    m_server.installConnectionObserver(new ClientObserver(
        [this](const QTcpSocket& client) { logClient(client, QStringLiteral("connected")); }));
    connect(&m_server, &QModbusTcpServer::modbusClientDisconnected, this,
            [this](QTcpSocket* client) { logClient(*client, QStringLiteral("disconnected")); });
    connect(&m_server, &SimulatorServer::written, this, [](const QModbusDataUnit& unit) {
        log(QStringLiteral("write %1").arg(RegisterText::format(unit)));
    });
}

void Simulator::logClient(const QTcpSocket& client, const QString& event) const
{
    log(QStringLiteral("client %1 %2")
            .arg(endpoint(client.peerAddress(), client.peerPort()), event));
}

bool Simulator::listen()
{
    // The server pastes address and port into a URL, so an IPv6 address needs its brackets.
    m_server.setConnectionParameter(QModbusDevice::NetworkAddressParameter,
                                    host(m_options.address));
    m_server.setConnectionParameter(QModbusDevice::NetworkPortParameter, m_options.port);
    return m_server.connectDevice() || refused(m_server.errorString());
}

bool Simulator::listenBehindProxy()
{
    m_server.setConnectionParameter(QModbusDevice::NetworkAddressParameter,
                                    QStringLiteral("127.0.0.1"));
    m_server.setConnectionParameter(QModbusDevice::NetworkPortParameter, 0);
    if (!m_server.connectDevice()) {
        return refused(m_server.errorString());
    }
    m_proxy = std::make_unique<SpoilingProxy>(*m_options.misbehaviour, m_server.port(),
                                              [quiet = m_options.quiet](const QString& line) {
                                                  if (!quiet) {
                                                      log(line);
                                                  }
                                              });
    return m_proxy->listen(m_options.address, m_options.port) || refused(m_proxy->errorString());
}

bool Simulator::refused(const QString& why) const
{
    log(QStringLiteral("cannot listen on %1: %2; choose another address or port, 0 for any that is "
                       "free")
            .arg(endpoint(m_options.address, m_options.port), why));
    return false;
}

quint16 Simulator::port() const { return m_proxy ? m_proxy->port() : m_server.port(); }
