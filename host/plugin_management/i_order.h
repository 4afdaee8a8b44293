#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

/// One call of a worker function, as a command asks for it.
struct Instruction
{
    QString worker; ///< empty: the plug-in object's own worker
    QString function;
    ParameterMap parameters;
    int timeoutMs = 0; ///< from the write of the request; 0: the host's own limit
    ReplyDelegate reply; ///< empty: the reply goes to the command's setReply()
};

/// What a command sees of the order that it serves.
class HOST_PLUGIN_MANAGEMENT_EXPORT IOrder
{
public:
    virtual quint64 orderId() const = 0;
    /// Starts the instruction and returns its id, 0 when it cannot be taken. Its reply never comes
    /// before this call has returned.
    virtual quint64 startInstruction(const Instruction& instruction) = 0;
    /// Ends a pending instruction without a reply. False when it is not pending.
    virtual bool stopInstruction(quint64 instructionId) = 0;
    /// Ends all pending instructions of the order.
    virtual void stopAllInstructions() = 0;
    /// A declared result has a new value.
    virtual void resultUpdated(const QString& name, const QVariant& value) = 0;
    /// The command has finished. The order ends once no instruction is pending any more.
    virtual void commandFinished(bool ok) = 0;

protected:
    ~IOrder() = default;
};
