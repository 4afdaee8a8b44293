#include <plugin_management/d_orders.h>

#include <plugin_management/d_abstract_worker.h>

#include <runtime/shell/order_shell.h>

DOrders::DOrders(QObject* parent) : DObject(parent), m_shell(new OrderShell(*this)) { }

DOrders::~DOrders() { m_shell->leave(); }

quint64 DOrders::start(const QString& command, const ParameterMap& parameters, QString* refusal)
{
    return m_shell->start(command, parameters, refusal);
}

bool DOrders::stop(quint64 orderId) { return m_shell->stop(orderId); }

const DOrder* DOrders::find(quint64 orderId) const { return m_shell->find(orderId); }

int DOrders::runningCount() const { return m_shell->runningCount(); }

void DOrders::shutDown() { m_shell->shutDown(); }

void DOrders::addPrototype(const DAbstractCommand* prototype) { m_shell->addPrototype(prototype); }

void DOrders::setWorker(ILocalWorker* worker)
{
    auto* base = dynamic_cast<DAbstractWorker*>(worker);
    if (base == nullptr) {
        qWarning("a worker that does not derive from DAbstractWorker cannot answer orders");
    }
    m_shell->setWorker(base);
}

void DOrders::clear() { m_shell->clear(); }
