#include "client.h"

#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>

#include <QUuid>

namespace {

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
    void start()
    {
        static const ParameterMap parameters = parametersOf(m_job);
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

    static ParameterMap parametersOf(const Job& job)
    {
        ParameterMap parameters{
            {QStringLiteral("register"), firstRegister},
            {QStringLiteral("registerType"), QStringLiteral("holdingRegisters")},
            {QStringLiteral("dataSize"), registersRead}};
        if (job.intervalMs > 0) {
            parameters.insert(QStringLiteral("recurrentInterval"), job.intervalMs);
        }
        return parameters;
    }

    std::unique_ptr<DAbstractPlugin> m_plugin;
    DOrders* m_orders = nullptr;
    std::function<void()> m_onOpen;
    quint64 m_connectId = 0;
};

} // namespace

std::unique_ptr<Client> makeDriverClient(const Job& job, Tally& tally)
{
    return std::make_unique<DriverClient>(job, tally);
}
