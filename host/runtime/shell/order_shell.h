#pragma once

#include <runtime/engine/order_life.h>
#include <runtime/shell/command_declarations.h>
#include <runtime/shell/id_table.h>
#include <runtime/shell/lingering.h>

#include <plugin_management/d_orders.h>
#include <plugin_management/i_command.h>
#include <plugin_management/i_order.h>

#include <QPointer>

#include <list>
#include <memory>
#include <vector>

class DAbstractCommand;
class DAbstractWorker;

/// The orders of one plug-in object at work: makes and calls commands, hands their instructions to
/// the worker, and brings outcomes back. How an order ends, OrderLife decides.
///
/// Commands and slots may do anything when they are called, destroying the orders included. The
/// shell itself lives on until the call has returned.
class OrderShell final : public Lingering
{
public:
    explicit OrderShell(DOrders& orders) : m_orders(&orders) { }

    /// The orders go: nothing of them is called any more.
    void leave();

    quint64 start(const QString& command, const ParameterMap& parameters, QString* refusal);
    bool stop(quint64 orderId);
    const DOrder* find(quint64 orderId);
    int runningCount() const { return static_cast<int>(m_running.size()); }
    void shutDown();

    void setListener(OrderListener* listener) { m_listener = listener; }
    void addPrototype(const DAbstractCommand* prototype);
    void setWorker(DAbstractWorker* worker);
    void clear();

private:
    class RunningOrder;
    using RunningOrderPtr = std::shared_ptr<RunningOrder>;

    /// A command that orders are made from, with what it declares at hand.
    struct Prototype
    {
        CommandDeclarations::Ptr declared;
        QSharedPointer<ICommand> factory; ///< makes commands without a parent: orders own them
    };

    struct PendingInstruction
    {
        RunningOrderPtr order;
        ReplyDelegate reply;
    };

    /// What is to be told later: an outcome, a result, or that an order may have ended.
    struct Report
    {
        enum class Kind { Outcome, Result, End };

        Kind kind = Kind::End;
        quint64 id = 0; ///< of the instruction, or of the order
        Outcome outcome = Outcome::Answer;
        ParameterMap reply;
        OrderFailure failure;
        QString name;
        QVariant value;
        RunningOrderPtr order;
    };

    const Prototype* prototype(const QString& name);
    quint64 startInstruction(RunningOrder& order, const Instruction& instruction);
    bool stopInstruction(RunningOrder& order, quint64 id);
    void stopInstructions(RunningOrder& order);
    void tellResult(quint64 orderId, const QString& name, const QVariant& value);
    void publish(quint64 orderId, const QString& name, const QVariant& value);

    void run(const RunningOrderPtr& order);
    void handleOutcome(quint64 id, Outcome outcome, const ParameterMap& reply,
                       const OrderFailure& failure);
    void bring(quint64 id, Outcome outcome, const ParameterMap& reply, const OrderFailure& failure);
    void finish(RunningOrder& order, bool ok);
    void endIfOver(const RunningOrderPtr& order);
    void end(const RunningOrderPtr& order);

    template <typename Call>
    bool callCommand(RunningOrder& order, const Call& call);
    template <typename Call>
    void announce(const Call& call);
    bool mustWait() const { return m_holds > 0 || !m_later.empty(); }
    void reportLater(const Report& report);
    void wakeReports();
    void reportNow();
    bool isOfStartingOrder(const Report& report);
    void tell(const Report& report);

    DOrders* m_orders; ///< null once they have gone
    OrderListener* m_listener = nullptr;
    int m_holds = 0; ///< a command is inside addInstruction(), or start() has not returned an id
    bool m_isWoken = false; ///< reportNow() will be called
    bool m_isClosed = false;
    std::list<Report> m_later;
    IdTable<RunningOrderPtr> m_running;
    IdTable<PendingInstruction> m_instructions;
    QPointer<DAbstractWorker> m_worker;
    std::vector<Prototype> m_prototypes;
};
