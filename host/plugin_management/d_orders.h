#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/d_order.h>

class DAbstractCommand;
class ILocalWorker;
class OrderShell;

/// The orders of one plug-in object: starts them, carries instructions to the worker and replies
/// back, and sees to it that every order ends exactly once.
///
/// Nothing of an order is reported before start() has returned its id. Lives on the thread of its
/// plug-in object.
class HOST_PLUGIN_MANAGEMENT_EXPORT DOrders : public DObject
{
    Q_OBJECT

public:
    explicit DOrders(QObject* parent = nullptr);
    ~DOrders() override;

    /// Starts an order and returns its id. 0 when it is refused (no such command, a parameter out
    /// of its range); \a refusal, when given, then says what, why and what would do.
    quint64 start(const QString& command, const ParameterMap& parameters,
                  QString* refusal = nullptr);
    /// Stops a running order; it ends as stopped, at once or when its stop command is through.
    /// False when it is not running.
    bool stop(quint64 orderId);
    /// The running order with this id, null when there is none.
    const DOrder* find(quint64 orderId) const;
    int runningCount() const;
    /// Ends every order as stopped, without asking the device. Later start() calls are refused.
    void shutDown();

    /// Makes a command available; the prototype must outlive its use here.
    void addPrototype(const DAbstractCommand* prototype);
    /// The worker that runs instructions. One that is no QObject cannot answer and is refused.
    void setWorker(ILocalWorker* worker);
    /// Forgets prototypes and worker after a shutDown(), to be set up anew.
    void clear();

signals:
    void sigOrderResult(quint64 orderId, const QString& name, const QVariant& value);
    /// A repetition failed, or a connection has trouble; the order goes on.
    void sigOrderTrouble(quint64 orderId, const OrderFailure& failure);
    /// The order's end: the last that is heard of it.
    void sigOrderFinished(const DOrder& order);

private:
    OrderShell* m_shell; ///< goes with the orders, or later when it is at work
};
