#pragma once

#include <runtime/engine/instruction_queue.h>
#include <runtime/engine/worker_action.h>

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/i_command.h>

#include <QLoggingCategory>

/// Every call of the runtime into code that is not its own: a module's worker and commands, the
/// slots of the kit's signals, tracers, message handlers. Such code may start and stop orders, run
/// an event loop, or destroy whoever calls it; so only the shells call these, and look after each
/// whether they are still wanted.
class ForeignCalls
{
public:
    // Of a worker.
    static bool run(const WorkerFunction& function, const WorkerInstruction& instruction,
                    ParameterMap& result)
    {
        return function(instruction.id, instruction.parameters, result);
    }
    static ParameterMap judge(DAbstractWorker& worker, const QByteArray& frame)
    {
        return worker.cbReply(frame);
    }
    static void tellRunning(DAbstractWorker& worker, quint64 id)
    {
        emit worker.sigOrderRunning(id);
    }
    static void tellState(DAbstractWorker& worker, bool up) { emit worker.sigStatusChanged(up); }
    static void tellOutcome(DAbstractWorker& worker, Outcome outcome, quint64 id,
                            const ParameterMap& reply)
    {
        switch (outcome) {
        case Outcome::Answer:
            emit worker.sigOrderAnswer(id, reply);
            break;
        case Outcome::Done:
            emit worker.sigOrderDone(id, reply);
            break;
        case Outcome::Error:
            emit worker.sigOrderError(id, reply);
            break;
        }
    }
    static void show(const DAbstractWorker::FrameTracer& tracer, bool outgoing,
                     const QByteArray& bytes)
    {
        tracer(outgoing, bytes);
    }

    // Of a command.
    static QString name(const DAbstractCommand& prototype) { return prototype.commandName(); }
    static QList<Declaration> arguments(const DAbstractCommand& prototype)
    {
        return prototype.commandArguments();
    }
    static bool isRecurrent(const DAbstractCommand& prototype) { return prototype.isRecurrent(); }
    static QSharedPointer<ICommand> create(const ICommand& factory, const ParameterMap& parameters)
    {
        return factory.createCommand(parameters);
    }
    static void link(ICommand& command, IOrder* order) { command.linkWithItsOrder(order); }
    static bool execute(ICommand& command) { return command.commandExecute(); }
    static bool deliver(ICommand& command, quint64 id, const ParameterMap& reply,
                        const ReplyDelegate& handler)
    {
        return handler.empty() ? command.setReply(id, reply) : handler(id, reply);
    }
    static void finish(ICommand& command, bool& ok) { command.finishTheCommand(ok); }
    static void tellFinished(ICommand& command, bool ok) { command.sigCommandFinished(ok); }

    // Of whoever hears what is logged.
    static void log(const QLoggingCategory& category, bool isWarning, const QString& text)
    {
        if (category.isEnabled(isWarning ? QtWarningMsg : QtInfoMsg)) {
            const QMessageLogger logger;
            (isWarning ? logger.warning(category) : logger.info(category)).noquote() << text;
        }
    }

    // Of who hears of orders: a listener, or the receivers of signals.
    static void tellResult(OrderListener& listener, quint64 id, const QString& name,
                           const QVariant& value)
    {
        listener.orderResult(id, name, value);
    }
    static void tellTrouble(OrderListener& listener, quint64 id, const OrderFailure& failure)
    {
        listener.orderTrouble(id, failure);
    }
    static void tellEnd(OrderListener& listener, const DOrder& order)
    {
        listener.orderFinished(order);
    }
    static void tellResult(DOrders& orders, quint64 id, const QString& name, const QVariant& value)
    {
        emit orders.sigOrderResult(id, name, value);
    }
    static void tellTrouble(DOrders& orders, quint64 id, const OrderFailure& failure)
    {
        emit orders.sigOrderTrouble(id, failure);
    }
    static void tellEnd(DOrders& orders, const DOrder& order)
    {
        emit orders.sigOrderFinished(order);
    }
};
