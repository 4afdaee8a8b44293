#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/d_order.h>

#include <atomic>

class DAbstractCommand;
class ILocalWorker;
class OrderShell;

/// Hears by plain calls what the signals of DOrders tell. One can listen to any number of plug-in
/// objects: with a thousand of them the way of the two signals of an order costs a tenth of it, as
/// what Qt keeps of each connection lies far from all else.
class OrderListener
{
public:
    // As the signals of DOrders of the like names; all that a slot may do, these may.
    virtual void orderResult(quint64 orderId, const QString& name, const QVariant& value) = 0;
    virtual void orderTrouble(quint64 orderId, const OrderFailure& failure) = 0;
    virtual void orderFinished(const DOrder& order) = 0;

protected:
    ~OrderListener() = default;
};

/// The orders of one plug-in object: starts them, carries instructions to the worker and replies
/// back, and sees to it that every order ends exactly once.
///
/// Nothing of an order is reported before start() has returned its id. A slot may start and stop
/// orders, run an event loop, and destroy the plug-in object. Everything is called, and reported,
/// on the thread of the plug-in object.
class HOST_PLUGIN_MANAGEMENT_EXPORT DOrders : public DObject
{
    Q_OBJECT

public:
    explicit DOrders(QObject* parent = nullptr);
    ~DOrders() override;

    /// Starts an order of the command \a command (not of its stop name: that is stop()) and returns
    /// its id, from 1. 0 when it is refused (no such command, a parameter out of its range, after
    /// shutDown()): \a refusal, when given, then says what and why, and nothing is reported. An
    /// order that its command or worker refuses has an id, and ends as failed.
    quint64 start(const QString& command, const ParameterMap& parameters,
                  QString* refusal = nullptr);
    /// Stops a running order; it ends as stopped, at once or when what its command asks of the
    /// device for that has ended. False when it is not running; a second stop changes nothing.
    bool stop(quint64 orderId);
    /// The running order with this id, null when there is none. Valid until the order ends.
    const DOrder* find(quint64 orderId) const;
    /// How many orders have not ended.
    int runningCount() const;
    /// Ends every order as stopped, within this call and without asking the device. Later start()
    /// calls are refused, until clear().
    void shutDown();

    /// Who hears of the orders, before the receivers of the signals; null: nobody else. Not owned:
    /// to be taken back before it goes.
    void setListener(OrderListener* listener);

    /// Makes a command available. What it declares is read now, and one createCommand() makes the
    /// copy that its orders' commands come from; \a prototype itself is not kept.
    void addPrototype(const DAbstractCommand* prototype);
    /// The worker that runs instructions; not owned, and may be destroyed before. One that does not
    /// derive from DAbstractWorker is warned of, and not used.
    void setWorker(ILocalWorker* worker);
    /// Forgets prototypes and worker after a shutDown(), to be set up anew.
    void clear();

signals:
    /// A command has published a value, also one that the result had before.
    void sigOrderResult(quint64 orderId, const QString& name, const QVariant& value);
    /// A repetition failed, or a connection has trouble; the order goes on.
    void sigOrderTrouble(quint64 orderId, const OrderFailure& failure);
    /// The order's end, exactly once: the last that is heard of it. \a order lives as long as the
    /// call.
    void sigOrderFinished(const DOrder& order);

protected:
    void connectNotify(const QMetaMethod& signal) override;

private:
    friend class OrderShell;
    std::atomic<bool> m_hasReceivers{false}; ///< somebody has connected, once
    OrderShell* m_shell; ///< goes with the orders, or later when it is at work
};
