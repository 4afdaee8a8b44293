#include <plugin_management/d_orders.h>

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/i_order.h>
#include <plugin_management/id_table_p.h>
#include <plugin_management/life_guard_p.h>
#include <plugin_management/order_command_p.h>
#include <plugin_management/parameter_check.h>
#include <runtime/shell/worker_shell.h>

#include <QPointer>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <vector>

namespace {

quint64 nextId()
{
    static std::atomic<quint64> last{0};
    return ++last;
}

[[gnu::cold]] OrderFailure makeFailure(OrderFailure::Code code, const QString& text)
{
    OrderFailure failure;
    failure.code = code;
    failure.text = text;
    return failure;
}

} // namespace

class DOrders::Private
{
public:
    explicit Private(DOrders& owner) : q(owner) { }

    class Running;
    using RunningPtr = std::shared_ptr<Running>;

    using Kind = Outcome;

    struct PendingInstruction
    {
        RunningPtr order;
        ReplyDelegate reply;
    };

    /// A command that orders are made from, with what it declares at hand.
    struct Prototype
    {
        const DAbstractCommand* command;
        QString name;
        QList<Declaration> arguments;
    };

    const Prototype* prototype(const QString& name) const;
    quint64 startInstruction(Running& order, const Instruction& instruction);
    bool stopInstruction(Running& order, quint64 id);
    void stopInstructions(Running& order);
    void executed(const RunningPtr& order, bool accepted);
    void finishByBase(Running& order, bool ok, const OrderFailure& why);

    void takeReply(quint64 id, Kind kind, const ParameterMap& reply,
                   const OrderFailure& failure); // the worker's outcomes
    void handleReply(quint64 id, Kind kind, const ParameterMap& reply, const OrderFailure& failure);
    void deliver(const RunningPtr& order, quint64 id, Kind kind, const ReplyDelegate& delegate,
                 const ParameterMap& reply, const OrderFailure& failure);
    void publish(quint64 orderId, const QString& name, const QVariant& value);
    void settleIfOver(const RunningPtr& order);
    void end(const RunningPtr& order);

    /// True while nothing may be reported directly: a command is inside addInstruction(), an order
    /// has not been announced to its starter yet, or older reports still wait.
    bool mustWait() const { return m_holds > 0 || !m_waiting.empty(); }
    [[gnu::cold]] void report(std::function<void()> action);
    void flush();

    DOrders& q;
    std::vector<Prototype> prototypes;
    QPointer<DAbstractWorker> worker;
    IdTable<RunningPtr> orders;
    IdTable<PendingInstruction> instructions;
    std::deque<std::function<void()>> m_waiting;
    int m_holds = 0;
    bool closed = false;
    Lifetime m_lifetime;
};

/// An order and the command that serves it.
class DOrders::Private::Running final : public IOrder, public std::enable_shared_from_this<Running>
{
public:
    explicit Running(Private& book) : m_book(book) { }
    virtual ~Running() = default;

    quint64 orderId() const override { return data.id; }

    quint64 startInstruction(const Instruction& instruction) override
    {
        return m_book.startInstruction(*this, instruction);
    }

    bool stopInstruction(quint64 id) override { return m_book.stopInstruction(*this, id); }

    void stopAllInstructions() override { m_book.stopInstructions(*this); }

    void resultUpdated(const QString& name, const QVariant& value) override
    {
        data.results.insert(name, value);
        m_book.publish(data.id, name, value);
    }

    void commandFinished(bool ok) override
    {
        finished = true;
        finishedOk = ok;
        if (calls == 0) { // on the command's own account, not in answer to a call of ours
            m_book.report(
                [book = &m_book, self = shared_from_this()] { book->settleIfOver(self); });
        }
    }

    DOrder data;
    QSharedPointer<ICommand> command;
    int pending = 0; ///< instructions that have not ended
    int calls = 0; ///< calls into the command that are on the stack
    bool finished = false;
    bool finishedOk = false;
    bool stopping = false;

private:
    Private& m_book;
};

const DOrders::Private::Prototype* DOrders::Private::prototype(const QString& name) const
{
    const auto it = std::find_if(prototypes.cbegin(), prototypes.cend(),
                                 [&](const Prototype& p) { return p.name == name; });
    return it != prototypes.cend() ? &*it : nullptr;
}

quint64 DOrders::Private::startInstruction(Running& order, const Instruction& instruction)
{
    if (!worker || !instruction.worker.isEmpty()) {
        order.data.failure = makeFailure(OrderFailure::Code::Usage,
                                         QStringLiteral("there is no worker '%1' to run '%2'")
                                             .arg(instruction.worker, instruction.function));
        return 0;
    }
    const quint64 id = nextId();
    instructions.append(id, {order.shared_from_this(), instruction.reply});
    ++order.pending;
    QString refusal;
    ++m_holds;
    const bool taken = worker->sltStartOrder(id, instruction.function, instruction.parameters,
                                             instruction.timeoutMs, refusal);
    --m_holds;
    if (taken) {
        return id;
    }
    if (instructions.remove(id)) {
        --order.pending;
    }
    order.data.failure = makeFailure(OrderFailure::Code::Usage, refusal);
    return 0;
}

bool DOrders::Private::stopInstruction(Running& order, quint64 id)
{
    const PendingInstruction* instruction = instructions.find(id);
    if (instruction == nullptr || instruction->order.get() != &order) {
        return false;
    }
    const RunningPtr keep = order.shared_from_this();
    --order.pending;
    instructions.remove(id);
    ++m_holds;
    if (worker) {
        worker->sltStopOrder(id);
    }
    --m_holds;
    return true;
}

void DOrders::Private::stopInstructions(Running& order)
{
    const RunningPtr keep = order.shared_from_this();
    while (order.pending > 0) { // the youngest first
        const auto& all = instructions.entries();
        const auto its = std::find_if(all.crbegin(), all.crend(), [&](const auto& entry) {
            return entry.second.order == keep;
        });
        stopInstruction(order, its->first);
    }
}

// A command that has run must have an instruction pending or be finished: nothing else would ever
// end its order.
void DOrders::Private::executed(const RunningPtr& order, bool accepted)
{
    if (!accepted) {
        order->stopAllInstructions();
        finishByBase(
            *order, false,
            makeFailure(OrderFailure::Code::Usage, QStringLiteral("the command refused to run")));
    } else if (order->pending == 0) {
        finishByBase(*order, false,
                     makeFailure(OrderFailure::Code::Usage,
                                 QStringLiteral("the command had nothing to ask of the device: a "
                                                "parameter has a value that it does not know")));
    }
}

void DOrders::Private::finishByBase(Running& order, bool ok, const OrderFailure& why)
{
    if (order.finished) {
        return;
    }
    if (!ok && !order.data.failure) {
        order.data.failure = why;
    }
    ++order.calls;
    order.command->sigCommandFinished(ok);
    order.commandFinished(ok);
    --order.calls;
}

void DOrders::Private::takeReply(quint64 id, Kind kind, const ParameterMap& reply,
                                 const OrderFailure& failure)
{
    if (!mustWait()) {
        handleReply(id, kind, reply, failure);
        return;
    }
    report([this, id, kind, reply, failure] { handleReply(id, kind, reply, failure); });
}

void DOrders::Private::handleReply(quint64 id, Kind kind, const ParameterMap& reply,
                                   const OrderFailure& failure)
{
    const PendingInstruction* instruction = instructions.find(id);
    if (instruction == nullptr) {
        return; // stopped meanwhile
    }
    const RunningPtr order = instruction->order;
    const ReplyDelegate delegate = instruction->reply;
    if (kind != Kind::Answer) {
        instructions.remove(id);
        --order->pending;
    }
    deliver(order, id, kind, delegate, reply, failure);
}

void DOrders::Private::deliver(const RunningPtr& order, quint64 id, Kind kind,
                               const ReplyDelegate& delegate, const ParameterMap& reply,
                               const OrderFailure& failure)
{
    const LifeGuard alive(m_lifetime);
    if (failure) {
        order->data.failure = failure;
        if (kind == Kind::Answer) {
            emit q.sigOrderTrouble(order->data.id, failure);
            if (!alive) {
                return;
            }
        }
    }
    ++order->calls;
    const bool accepted =
        delegate.empty() ? order->command->setReply(id, reply) : delegate(id, reply);
    --order->calls;
    if (!alive) {
        return;
    }
    if (kind != Kind::Answer && order->pending == 0) {
        finishByBase(*order, accepted && kind == Kind::Done,
                     makeFailure(OrderFailure::Code::BadReply,
                                 QStringLiteral("the reply lacks what the command needs")));
    }
    settleIfOver(order);
}

void DOrders::Private::publish(quint64 orderId, const QString& name, const QVariant& value)
{
    if (!mustWait()) {
        emit q.sigOrderResult(orderId, name, value);
        return;
    }
    report([this, orderId, name, value] { emit q.sigOrderResult(orderId, name, value); });
}

void DOrders::Private::settleIfOver(const RunningPtr& order)
{
    const bool over = order->finished && order->pending == 0 && order->calls == 0;
    if (!over || order->data.state != DOrder::State::Running) {
        return;
    }
    if (order->stopping) {
        order->data.state = DOrder::State::Stopped;
    } else {
        order->data.state = order->finishedOk ? DOrder::State::Done : DOrder::State::Failed;
    }
    if (mustWait()) {
        report([this, order] { end(order); });
    } else {
        end(order);
    }
}

void DOrders::Private::end(const RunningPtr& order)
{
    if (!orders.remove(order->data.id)) {
        return;
    }
    if (order->data.state == DOrder::State::Done) {
        order->data.failure = OrderFailure();
    }
    order->command->linkWithItsOrder(nullptr);
    emit q.sigOrderFinished(order->data);
}

void DOrders::Private::report(std::function<void()> action)
{
    if (m_waiting.empty()) {
        QMetaObject::invokeMethod(
            &q, [this] { flush(); }, Qt::QueuedConnection);
    }
    m_waiting.push_back(std::move(action));
}

void DOrders::Private::flush()
{
    const LifeGuard alive(m_lifetime);
    while (alive && !m_waiting.empty()) {
        // Taken out first, so that what it causes is reported directly when it was the last one.
        const std::function<void()> action = std::move(m_waiting.front());
        m_waiting.pop_front();
        action();
    }
}

DOrders::DOrders(QObject* parent) : DObject(parent), d(new Private(*this)) { }

DOrders::~DOrders()
{
    shutDown();
    leaveWorker();
}

quint64 DOrders::start(const QString& command, const ParameterMap& parameters, QString* refusal)
{
    const Private::Prototype* prototype = d->closed ? nullptr : d->prototype(command);
    QString error;
    if (prototype == nullptr) {
        error = QStringLiteral("there is no command '%1'").arg(command);
    }
    ParameterMap checked = parameters;
    if (prototype == nullptr || !checkParameters(prototype->arguments, checked, &error)) {
        if (refusal != nullptr) {
            *refusal = error;
        }
        return 0;
    }
    const auto order = std::make_shared<Private::Running>(*d);
    order->data.command = command;
    order->data.parameters = checked;
    order->data.recurrent = prototype->command->isRecurrent();
    order->command = createOrderCommand(*prototype->command, checked);
    order->data.id = nextId();
    order->command->linkWithItsOrder(order.get());
    d->orders.append(order->data.id, order);
    ++d->m_holds;
    ++order->calls;
    const bool accepted = order->command->commandExecute();
    --order->calls;
    d->executed(order, accepted);
    d->settleIfOver(order);
    --d->m_holds;
    return order->data.id;
}

bool DOrders::stop(quint64 orderId)
{
    const Private::RunningPtr* found = d->orders.find(orderId);
    if (found == nullptr || (*found)->stopping) {
        return found != nullptr;
    }
    const Private::RunningPtr order = *found;
    order->stopping = true;
    bool ok = true;
    ++order->calls;
    order->command->finishTheCommand(ok);
    --order->calls;
    if (!order->finished) { // a command that does not finish on request is finished here
        order->stopAllInstructions();
        d->finishByBase(*order, ok, makeFailure(OrderFailure::Code::Stopped, QString()));
    }
    d->settleIfOver(order);
    return true;
}

const DOrder* DOrders::find(quint64 orderId) const
{
    const Private::RunningPtr* found = d->orders.find(orderId);
    return found != nullptr ? &(*found)->data : nullptr;
}

int DOrders::runningCount() const { return static_cast<int>(d->orders.size()); }

void DOrders::shutDown()
{
    d->closed = true;
    d->m_waiting.clear();
    const LifeGuard alive(d->m_lifetime);
    while (alive && !d->orders.empty()) {
        const Private::RunningPtr order = d->orders.first();
        order->stopAllInstructions();
        order->finished = true;
        order->data.state = DOrder::State::Stopped;
        if (!order->data.failure) {
            order->data.failure = makeFailure(OrderFailure::Code::Stopped,
                                              QStringLiteral("the plug-in object was closed"));
        }
        d->end(order);
    }
}

void DOrders::addPrototype(const DAbstractCommand* prototype)
{
    d->prototypes.push_back({prototype, prototype->commandName(), prototype->commandArguments()});
}

void DOrders::setWorker(ILocalWorker* worker)
{
    leaveWorker();
    auto* base = dynamic_cast<DAbstractWorker*>(worker);
    d->worker = base;
    if (base == nullptr) {
        qWarning("a worker that does not derive from DAbstractWorker cannot answer orders");
        return;
    }
    base->m_shell->setOutcomeHandler({d.get(), &Private::takeReply});
}

void DOrders::leaveWorker()
{
    if (d->worker) {
        d->worker->m_shell->setOutcomeHandler({});
    }
    d->worker = nullptr;
}

void DOrders::clear()
{
    d->prototypes.clear();
    leaveWorker();
    d->closed = false;
}
