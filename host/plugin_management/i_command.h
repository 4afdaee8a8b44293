#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

#include <QList>
#include <QSharedPointer>

class IOrder;

/// What the host sees of a command. Everything here is called on the thread of the plug-in object,
/// and by the host only. The order of the operations is part of the binary interface: add none,
/// move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT ICommand
{
public:
    /// A fresh command of the same class for an order with these parameters, owned by the shared
    /// pointer that is returned. Also called once without parameters, when the command is declared:
    /// the commands of all orders are then made by that copy.
    virtual QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const = 0;

    /// Ties the command to the order that it serves; the order outlives the tie. Null unties it,
    /// which comes with the order's end.
    virtual void linkWithItsOrder(IOrder* order) = 0;
    /// The name of the orders that run it.
    virtual QString commandName() const = 0;
    /// The name of the order that stops this one; empty when there is none.
    virtual QString stopCommandName() const = 0;
    /// The id of the linked order, 0 when there is none.
    virtual quint64 getOrderId() const = 0;
    /// The id that the parameters name under "orderId", 0 when they name none.
    virtual quint64 getParameterOrderId() const = 0;
    /// True when the command goes on until it is stopped.
    virtual bool isRecurrent() const = 0;
    /// True when the command is linked to an order, has a name, and has not finished.
    virtual bool isValid() const = 0;
    /// What it is for, one line for people.
    virtual QString description() const = 0;
    /// Name, stop name, description, parameters and results as a text of several lines.
    virtual QString fullDescription() const = 0;
    /// The declared parameters in order.
    virtual QList<Declaration> commandArguments() const = 0;
    /// Runs the command, once. False when it must not or cannot run: what it has asked for is then
    /// stopped, and the order fails. So does one that returns true and leaves no instruction.
    virtual bool commandExecute() = 0;
    /// Takes each reply to an instruction that has no delegate of its own, that of a failure too.
    /// False rejects it; see ReplyDelegate.
    virtual bool setReply(quint64 instructionId, const ParameterMap& reply) = 0;
    /// Ends a running command on behalf of a stop order; \a ok, which comes as true, tells how it
    /// went. A command that has not finished afterwards is finished by the host, without a further
    /// word from the device.
    virtual bool finishTheCommand(bool& ok) = 0;
    /// A signal of the implementing object: the command has finished, well if \a ok.
    virtual void sigCommandFinished(bool ok) = 0;

protected:
    ~ICommand() = default;
};
