#include "client.h"

#include <QModbusDataUnit>
#include <QModbusReply>
#include <QModbusTcpClient>
#include <QTimer>

namespace {

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
            {QModbusDataUnit::HoldingRegisters, firstRegister, registersRead}, 0);
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

} // namespace

std::unique_ptr<Client> makeQtClient(const Job& job, Tally& tally)
{
    return std::make_unique<QtClient>(job, tally);
}
