#pragma once

#include <plugin_management/d_object.h>
#include <plugin_management/i_command.h>

#include <QVarLengthArray>

/// The base of every command: name, declarations, the order's parameters and the way to the worker.
///
/// A command is made per order by createCommand(), which gives it the parent of the command that it
/// is called on, and runs once. It tells the host what it takes and gives by declareAParameter()
/// and declareAResult() in its constructor, and does its work by addInstruction(). The order of the
/// virtual operations is part of the binary interface: add none, move none.
class HOST_PLUGIN_MANAGEMENT_EXPORT DAbstractCommand : public DObject, public ICommand
{
    Q_OBJECT

public:
    /// A command that goes on until the order \a stopName stops it.
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
    /// The check that every override runs first: true when the command may run.
    bool commandExecute() override;
    /// Publishes each declared result that the reply holds. False for a rejected reply ("doneOk"
    /// false), which publishes nothing.
    bool setReply(quint64 instructionId, const ParameterMap& reply) override;
    /// Stops all instructions and finishes the command with \a ok.
    bool finishTheCommand(bool& ok) override;

signals:
    void sigCommandFinished(bool ok) override;

protected:
    /// Asks a worker to run one of its functions; returns the instruction's id, 0 when it cannot be
    /// taken. The reply goes to \a reply, or to setReply() when that is empty, and never before
    /// this call has returned. \a timeoutMs counts from the write of the request; 0 is the host's
    /// own limit.
    virtual quint64 addInstruction(const QString& worker, const QString& function,
                                   const ParameterMap& parameters, int timeoutMs,
                                   const ReplyDelegate& reply);

public:
    /// The declared results in order.
    QList<Declaration> commandResults() const;

protected:
    void setDescription(const QString& text);
    void declareAParameter(const QString& name, const QString& typeTag, const QString& description,
                           const QVariant& defaultValue);
    void declareAResult(const QString& name, const QString& typeTag, const QString& description,
                        const QVariant& defaultValue);
    /// The order's value for \a name, or \a defaultValue when the order has none.
    QVariant getParameterValue(const QString& name, const QVariant& defaultValue) const;
    /// Ends a running instruction without a reply. False when it is not running.
    bool stopTheInstruction(quint64 instructionId);
    /// Publishes a declared result. False, and nothing is published, for any other name.
    bool commandUpdateResult(const QString& name, const QVariant& value);
    /// Completes the command. A second call changes nothing: \a ok comes back as the first call
    /// left it. Returns \a ok.
    bool commandFinish(bool& ok);

private:
    QString m_name;
    QString m_stopName;
    QString m_description;
    ParameterMap m_parameters;
    QVarLengthArray<Declaration, 4> m_arguments;
    QVarLengthArray<Declaration, 2> m_results;
    IOrder* m_order = nullptr;
    bool m_finished = false;
    bool m_finishedOk = false;
};
