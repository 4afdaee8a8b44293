#include <plugin_management/d_orders.h>

#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/thread_rule.h>

#include <runtime/shell/order_shell.h>

DOrders::DOrders(QObject* parent) : DObject(parent), m_shell(new OrderShell(*this)) { }

DOrders::~DOrders() { m_shell->leave(); }

quint64 DOrders::start(const QString& command, const ParameterMap& parameters, QString* refusal)
{
    assertOwnThread(*this, "DOrders::start()");
    return m_shell->start(command, parameters, refusal);
}

bool DOrders::stop(quint64 orderId)
{
    assertOwnThread(*this, "DOrders::stop()");
    return m_shell->stop(orderId);
}

const DOrder* DOrders::find(quint64 orderId) const
{
    assertOwnThread(*this, "DOrders::find()");
    return m_shell->find(orderId);
}

int DOrders::runningCount() const
{
    assertOwnThread(*this, "DOrders::runningCount()");
    return m_shell->runningCount();
}

void DOrders::shutDown()
{
    assertOwnThread(*this, "DOrders::shutDown()");
    m_shell->shutDown();
}

void DOrders::setListener(OrderListener* listener)
{
    assertOwnThread(*this, "DOrders::setListener()");
    m_shell->setListener(listener);
}

// On whatever thread connects.
void DOrders::connectNotify(const QMetaMethod& signal)
{
    Q_UNUSED(signal)
    m_hasReceivers = true;
}

void DOrders::addPrototype(const DAbstractCommand* prototype) { m_shell->addPrototype(prototype); }

void DOrders::setWorker(ILocalWorker* worker)
{
    assertOwnThread(*this, "DOrders::setWorker()");
    auto* base = dynamic_cast<DAbstractWorker*>(worker);
    if (base == nullptr) {
        qWarning("a worker that does not derive from DAbstractWorker cannot answer orders");
    }
    m_shell->setWorker(base);
}

void DOrders::clear() { m_shell->clear(); }
