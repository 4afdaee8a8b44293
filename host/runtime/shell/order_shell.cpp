#include <runtime/shell/order_shell.h>

#include <runtime/shell/foreign_calls.h>
#include <runtime/shell/worker_shell.h>

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/parameter_check.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace {

quint64 nextId()
{
    static std::atomic<quint64> last{0};
    return ++last;
}

// What the commands of orders are made from: a command like \a prototype, but without its parent. A
// command hands its own parent on to those it makes, so theirs is none either, as it must be: an
// order owns its command, and the plug-in object would delete a child a second time.
QSharedPointer<ICommand> withoutParent(const DAbstractCommand& prototype)
{
    QSharedPointer<ICommand> copy = ForeignCalls::create(prototype, ParameterMap());
    if (auto* object = dynamic_cast<QObject*>(copy.data())) {
        object->setParent(nullptr);
    }
    return copy;
}

} // namespace

/// An order and the command that serves it.
class OrderShell::RunningOrder final : public IOrder,
                                       public std::enable_shared_from_this<RunningOrder>
{
public:
    explicit RunningOrder(OrderShell& shell) : m_shell(shell) { }
    virtual ~RunningOrder() = default;

    quint64 orderId() const override { return life.data.id; }

    quint64 startInstruction(const Instruction& instruction) override
    {
        return m_shell.startInstruction(*this, instruction);
    }

    bool stopInstruction(quint64 id) override { return m_shell.stopInstruction(*this, id); }

    void stopAllInstructions() override { m_shell.stopInstructions(*this); }

    void resultUpdated(const QString& name, const QVariant& value) override
    {
        life.data.results.insert(name, value);
        m_shell.publish(life.data.id, name, value);
    }

    void commandFinished(bool ok) override
    {
        life.commandFinished(ok);
        if (!life.isBeingCalled()) { // on the command's own account, not in answer to a call
            Report report;
            report.id = life.data.id;
            report.order = shared_from_this();
            m_shell.reportLater(report);
        }
    }

    OrderLife life;
    QSharedPointer<ICommand> command;
    bool isStarting = false; ///< start() has not returned its id yet

private:
    OrderShell& m_shell;
};

void OrderShell::leave()
{
    const Stay stay(this);
    shutDown();
    setWorker(nullptr);
    m_orders = nullptr;
    release();
}

// --- instructions, as commands ask for them ---

quint64 OrderShell::startInstruction(RunningOrder& order, const Instruction& instruction)
{
    if (!m_worker || !instruction.worker.isEmpty()) {
        order.life.instructionRefused(QStringLiteral("there is no worker '%1' to run '%2'")
                                          .arg(instruction.worker, instruction.function));
        return 0;
    }
    const quint64 id = nextId();
    m_instructions.append(id, {order.shared_from_this(), instruction.reply});
    order.life.instructionTaken();
    QString refusal;
    ++m_holds;
    const bool taken = m_worker->sltStartOrder(id, instruction.function, instruction.parameters,
                                               instruction.timeoutMs, refusal);
    --m_holds;
    if (taken) {
        return id;
    }
    if (m_instructions.remove(id)) {
        order.life.instructionEnded();
    }
    order.life.instructionRefused(refusal);
    return 0;
}

bool OrderShell::stopInstruction(RunningOrder& order, quint64 id)
{
    const PendingInstruction* instruction = m_instructions.find(id);
    if (instruction == nullptr || instruction->order.get() != &order) {
        return false;
    }
    const RunningOrderPtr keep = order.shared_from_this();
    order.life.instructionEnded();
    m_instructions.remove(id);
    ++m_holds;
    if (m_worker) {
        m_worker->sltStopOrder(id);
    }
    --m_holds;
    return true;
}

void OrderShell::stopInstructions(RunningOrder& order)
{
    const RunningOrderPtr keep = order.shared_from_this();
    while (order.life.pending() > 0) { // the youngest first
        const auto& all = m_instructions.entries();
        const auto its = std::find_if(all.crbegin(), all.crend(), [&](const auto& entry) {
            return entry.second.order == keep;
        });
        stopInstruction(order, its->first);
    }
}

// Tells those who hear of the orders, the listener first. A signal that nobody was ever connected
// to is not sent: of a thousand devices it costs two lines of memory each.
template <typename Call>
void OrderShell::announce(const Call& call)
{
    if (m_listener != nullptr) {
        call(*m_listener);
    }
    if (m_orders != nullptr && m_orders->m_hasReceivers) {
        call(*m_orders);
    }
}

void OrderShell::tellResult(quint64 orderId, const QString& name, const QVariant& value)
{
    announce([&](auto& hearer) { ForeignCalls::tellResult(hearer, orderId, name, value); });
}

void OrderShell::publish(quint64 orderId, const QString& name, const QVariant& value)
{
    if (!mustWait()) {
        tellResult(orderId, name, value);
        return;
    }
    Report report;
    report.kind = Report::Kind::Result;
    report.id = orderId;
    report.name = name;
    report.value = value;
    reportLater(report);
}

// --- from an order's start to its end ---

// Calls into the command of an order. False when the orders have gone in the call.
template <typename Call>
bool OrderShell::callCommand(RunningOrder& order, const Call& call)
{
    order.life.callBegins();
    call(*order.command);
    order.life.callReturned();
    return m_orders != nullptr;
}

quint64 OrderShell::start(const QString& command, const ParameterMap& parameters, QString* refusal)
{
    const Prototype* found = m_isClosed ? nullptr : prototype(command);
    ParameterMap checked = parameters;
    QString error;
    if (m_isClosed) {
        error = QStringLiteral("the plug-in object was closed; make another one");
    } else if (found == nullptr) {
        error = QStringLiteral("there is no command '%1'").arg(command);
    }
    if (found == nullptr || !checkParameters(found->declared->arguments, checked, &error)) {
        if (refusal != nullptr) {
            *refusal = error;
        }
        return 0;
    }
    const auto order = std::make_shared<RunningOrder>(*this);
    DOrder& data = order->life.data;
    data.id = nextId();
    data.command = command;
    data.parameters = checked;
    data.recurrent = found->declared->isRecurrent;
    {
        const CommandDeclarations::Expectation expectation(found->declared);
        order->command = ForeignCalls::create(*found->factory, checked);
    }
    m_running.append(data.id, order);
    run(order);
    return data.id;
}

// Nothing is told of the order before start() has returned its id.
void OrderShell::run(const RunningOrderPtr& order)
{
    const Stay stay(this);
    order->isStarting = true;
    ForeignCalls::link(*order->command, order.get());
    bool accepted = false;
    ++m_holds;
    const bool areThere =
        callCommand(*order, [&](ICommand& command) { accepted = ForeignCalls::execute(command); });
    if (areThere && !accepted) {
        order->stopAllInstructions();
    }
    bool ok = false;
    if (areThere && order->life.mustFinishAfterRun(accepted, ok)) {
        finish(*order, ok);
    }
    endIfOver(order);
    --m_holds;
    order->isStarting = false;
    if (!m_later.empty()) {
        wakeReports();
    }
}

bool OrderShell::stop(quint64 orderId)
{
    const RunningOrderPtr* found = m_running.find(orderId);
    if (found == nullptr || !(*found)->life.requestStop()) {
        return found != nullptr;
    }
    const Stay stay(this);
    const RunningOrderPtr order = *found;
    bool ok = true;
    const bool areThere =
        callCommand(*order, [&](ICommand& command) { ForeignCalls::finish(command, ok); });
    if (areThere && !order->life.isFinished()) { // it does not finish on request
        order->stopAllInstructions();
        finish(*order, ok);
    }
    endIfOver(order);
    return true;
}

void OrderShell::handleOutcome(quint64 id, Outcome outcome, const ParameterMap& reply,
                               const OrderFailure& failure)
{
    if (!mustWait()) {
        bring(id, outcome, reply, failure);
        return;
    }
    Report report;
    report.kind = Report::Kind::Outcome;
    report.id = id;
    report.outcome = outcome;
    report.reply = reply;
    report.failure = failure;
    reportLater(report);
}

void OrderShell::bring(quint64 id, Outcome outcome, const ParameterMap& reply,
                       const OrderFailure& failure)
{
    const PendingInstruction* instruction = m_instructions.find(id);
    if (instruction == nullptr) {
        return; // stopped meanwhile
    }
    const Stay stay(this);
    const RunningOrderPtr order = instruction->order;
    const ReplyDelegate handler = instruction->reply;
    if (outcome != Outcome::Answer) {
        m_instructions.remove(id);
        order->life.instructionEnded();
    }
    order->life.noteFailure(failure);
    if (failure && outcome == Outcome::Answer) {
        announce(
            [&](auto& hearer) { ForeignCalls::tellTrouble(hearer, order->orderId(), failure); });
    }
    bool accepted = false;
    bool ok = false;
    const bool areThere = m_orders != nullptr && callCommand(*order, [&](ICommand& command) {
                              accepted = ForeignCalls::deliver(command, id, reply, handler);
                          });
    if (areThere && order->life.mustFinishAfterReply(outcome, accepted, ok)) {
        finish(*order, ok);
    }
    endIfOver(order);
}

void OrderShell::finish(RunningOrder& order, bool ok)
{
    callCommand(order, [&](ICommand& command) {
        ForeignCalls::tellFinished(command, ok);
        order.life.commandFinished(ok);
    });
}

void OrderShell::endIfOver(const RunningOrderPtr& order)
{
    if (m_orders == nullptr || !order->life.decideEnd()) {
        return;
    }
    if (!mustWait()) {
        end(order);
        return;
    }
    Report report;
    report.id = order->orderId();
    report.order = order;
    reportLater(report);
}

void OrderShell::end(const RunningOrderPtr& order)
{
    if (m_running.remove(order->orderId())) {
        ForeignCalls::link(*order->command, nullptr);
        announce([&](auto& hearer) { ForeignCalls::tellEnd(hearer, order->life.data); });
    }
}

void OrderShell::shutDown()
{
    const Stay stay(this);
    m_isClosed = true;
    m_later.clear();
    // The last ones first: what waits must not begin when what it waits for is stopped.
    const std::vector<IdTable<RunningOrderPtr>::Entry> all = m_running.entries();
    std::for_each(all.rbegin(), all.rend(),
                  [](const auto& entry) { entry.second->stopAllInstructions(); });
    while (m_orders != nullptr && !m_running.empty()) {
        const RunningOrderPtr order = m_running.first();
        order->stopAllInstructions();
        order->life.cutShort(QStringLiteral("the plug-in object was closed"));
        end(order);
    }
}

// --- what cannot be told yet ---

void OrderShell::reportLater(const Report& report)
{
    m_later.push_back(report);
    wakeReports();
}

void OrderShell::wakeReports()
{
    if (m_orders != nullptr && !std::exchange(m_isWoken, true)) {
        QMetaObject::invokeMethod(
            m_orders, [this] { reportNow(); }, Qt::QueuedConnection);
    }
}

// Also from an event loop inside start(): then what concerns that very order goes on waiting.
void OrderShell::reportNow()
{
    const Stay stay(this);
    m_isWoken = false;
    std::list<Report> kept;
    while (m_orders != nullptr && !m_later.empty()) {
        // Taken out first, so that what it causes is told directly when it was the last one.
        const Report report = std::move(m_later.front());
        m_later.pop_front();
        if (isOfStartingOrder(report)) {
            kept.push_back(report);
            continue;
        }
        if (!m_later.empty()) {
            wakeReports(); // for an event loop in a slot, which must not hold up the others
        }
        tell(report);
    }
    m_later.splice(m_later.begin(), kept);
}

bool OrderShell::isOfStartingOrder(const Report& report)
{
    if (report.kind == Report::Kind::Outcome) {
        const PendingInstruction* instruction = m_instructions.find(report.id);
        return instruction != nullptr && instruction->order->isStarting;
    }
    const RunningOrderPtr* order = m_running.find(report.id);
    return order != nullptr && (*order)->isStarting;
}

void OrderShell::tell(const Report& report)
{
    switch (report.kind) {
    case Report::Kind::Outcome:
        bring(report.id, report.outcome, report.reply, report.failure);
        break;
    case Report::Kind::Result:
        tellResult(report.id, report.name, report.value);
        break;
    case Report::Kind::End:
        report.order->life.decideEnd();
        if (report.order->life.data.state != DOrder::State::Running) {
            end(report.order);
        }
        break;
    }
}

// --- set-up ---

// What was asked for last comes first: with many devices a walk over the others fetches a line or
// two of memory.
const OrderShell::Prototype* OrderShell::prototype(const QString& name)
{
    const auto it =
        std::find_if(m_prototypes.begin(), m_prototypes.end(), [&](const Prototype& known) {
            return isSameText(known.declared->name, name);
        });
    if (it == m_prototypes.end()) {
        return nullptr;
    }
    std::rotate(m_prototypes.begin(), it, it + 1);
    return &m_prototypes.front();
}

const DOrder* OrderShell::find(quint64 orderId)
{
    const RunningOrderPtr* found = m_running.find(orderId);
    return found != nullptr ? &(*found)->life.data : nullptr;
}

void OrderShell::addPrototype(const DAbstractCommand* prototype)
{
    const CommandDeclarations declared{
        ForeignCalls::name(*prototype), ForeignCalls::isRecurrent(*prototype),
        ForeignCalls::arguments(*prototype), prototype->commandResults()};
    const CommandDeclarations::Ptr shared = CommandDeclarations::shared(declared);
    const CommandDeclarations::Expectation expectation(shared);
    m_prototypes.push_back({shared, withoutParent(*prototype)});
}

void OrderShell::setWorker(DAbstractWorker* worker)
{
    if (m_worker) {
        m_worker->m_shell->setOutcomeHandler({});
    }
    m_worker = worker;
    if (m_worker) {
        m_worker->m_shell->setOutcomeHandler({this, &OrderShell::handleOutcome});
    }
}

void OrderShell::clear()
{
    m_prototypes.clear();
    setWorker(nullptr);
    m_isClosed = false;
}
