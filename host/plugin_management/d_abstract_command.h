#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/i_command.h>

#include <memory>

struct CommandDeclarations;

/// The base of every command: name, declarations, the order's parameters and the way to the worker.
///
/// A command is made per order by createCommand(), which gives it the parent of the command that it
/// is called on, and runs once. It tells the host what it takes and gives by declareAParameter()
/// and declareAResult() in its constructor, and does its work by addInstruction(). It is touched on
/// the thread of its plug-in object only. The order of the virtual operations is part of the binary
/// interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractCommand : public DObject, public ICommand
{
    Q_OBJECT

public:
    /// A command that goes on until it is stopped. \a stopName, not empty, is what users call that.
    DAbstractCommand(const QString& name, const QString& stopName, const ParameterMap& parameters,
                     QObject* parent);
    /// A command that ends by itself.
    DAbstractCommand(const QString& name, const ParameterMap& parameters, QObject* parent);
    ~DAbstractCommand() override;

    void linkWithItsOrder(IOrder* order) override;
    QString commandName() const override;
    QString stopCommandName() const override;
    quint64 getOrderId() const override;
    quint64 getParameterOrderId() const override;
    bool isRecurrent() const override;
    bool isValid() const override;
    QString description() const override;
    QString fullDescription() const override;
    QList<Declaration> commandArguments() const override;
    /// The check that every override runs first: true when the command may run. An override then
    /// adds its instructions. Parameters have been checked against the declarations by then, and
    /// declared defaults filled in.
    bool commandExecute() override;
    /// Publishes each declared result that the reply holds. False for a rejected reply ("doneOk"
    /// false), which publishes nothing.
    bool setReply(quint64 instructionId, const ParameterMap& reply) override;
    /// Stops all instructions and finishes the command with \a ok. An override may ask the device
    /// for an end by a further instruction before it finishes; the order ends with that one.
    bool finishTheCommand(bool& ok) override;

signals:
    /// Sent once, when the command finishes.
    void sigCommandFinished(bool ok) override;

protected:
    /// Asks the worker to run \a function; returns the instruction's id, from 1. 0 when it cannot
    /// be taken: no such function, 1024 instructions wait already, a bad interval, a \a worker
    /// other than "" (the object's own), a command without an order. The reason is then the order's
    /// failure, should it fail.
    ///
    /// Each reply goes to \a reply, or to setReply() when that is empty, and never before this call
    /// has returned. \a timeoutMs counts from the write of the request, for "connect" from each
    /// attempt to connect; 0 is the host's own limit, 5000 ms. With "recurrent" true among the
    /// \a parameters it repeats every "recurrentInterval" (1 to 86400000 ms) until it is stopped,
    /// and gives a reply each time, good or bad.
    virtual quint64 addInstruction(const QString& worker, const QString& function,
                                   const ParameterMap& parameters, int timeoutMs,
                                   const ReplyDelegate& reply);

public:
    /// The declared results in order.
    QList<Declaration> commandResults() const;

protected:
    /// What the command is for, one line for people.
    void setDescription(const QString& text);
    /// Declares what an order may or must give; users see them in this order. \a typeTag says what
    /// fits (see checkValue()): an order with another value is refused before the command is made.
    /// An invalid default is none: driver-host then asks for the parameter, while DOrders starts an
    /// order without it as well. Undeclared parameters pass.
    void declareAParameter(const QString& name, const QString& typeTag, const QString& description,
                           const QVariant& defaultValue);
    /// Declares what the command publishes. \a typeTag and \a defaultValue are for people and
    /// programs that ask; no value is checked against them.
    void declareAResult(const QString& name, const QString& typeTag, const QString& description,
                        const QVariant& defaultValue);
    /// The order's value for \a name, or \a defaultValue when the order has none.
    QVariant getParameterValue(const QString& name, const QVariant& defaultValue) const;
    /// Ends one of this order's instructions without a reply. False when it has ended already. A
    /// request that is out is then still waited for, but its reply reaches nobody.
    bool stopTheInstruction(quint64 instructionId);
    /// Publishes a value of a declared result, also one that it had before. False, and nothing is
    /// published, for any other name or without an order.
    bool commandUpdateResult(const QString& name, const QVariant& value);
    /// Completes the command, well if \a ok. The order ends once its instructions have ended, too.
    /// A second call changes nothing: \a ok comes back as the first call left it. Returns \a ok.
    bool commandFinish(bool& ok);

private:
    QString m_name;
    QString m_stopName;
    QString m_description;
    ParameterMap m_parameters;
    // As many as it has declared until now of what may be shared with commands that declare more.
    std::shared_ptr<const CommandDeclarations> m_declared;
    int m_argumentCount = 0;
    int m_resultCount = 0;
    IOrder* m_order = nullptr;
    bool m_finished = false;
    bool m_finishedOk = false;
};
