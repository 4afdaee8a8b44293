#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

/// One call of a worker function, as a command asks for it.
struct Instruction
{
    QString worker; ///< empty: the plug-in object's own worker
    QString function; ///< as the worker has declared it
    ParameterMap parameters; ///< of the function; "recurrent" and "recurrentInterval" repeat it
    int timeoutMs = 0; ///< from the write of the request; 0: the host's own limit, 5000 ms
    ReplyDelegate reply; ///< empty: the reply goes to the command's setReply()
};

/// What a command sees of the order that it serves. Commands that derive from DAbstractCommand
/// reach it by its operations. Called on the thread of the plug-in object.
class HOST_PLUGIN_MANAGEMENT_EXPORT IOrder
{
public:
    /// From 1, never used again in this process.
    virtual quint64 orderId() const = 0;
    /// Starts the instruction and returns its id, 0 when it cannot be taken. Its reply never comes
    /// before this call has returned.
    virtual quint64 startInstruction(const Instruction& instruction) = 0;
    /// Ends a pending instruction without a reply. False when it is not pending, or is another
    /// order's.
    virtual bool stopInstruction(quint64 instructionId) = 0;
    /// Ends all pending instructions of the order.
    virtual void stopAllInstructions() = 0;
    /// Publishes a value of a result, also one that it had before.
    virtual void resultUpdated(const QString& name, const QVariant& value) = 0;
    /// The command has finished, well if \a ok. The order ends once no instruction is pending any
    /// more.
    virtual void commandFinished(bool ok) = 0;

protected:
    ~IOrder() = default;
};
