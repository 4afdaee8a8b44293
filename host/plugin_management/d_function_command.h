#pragma once

#include <plugin_management/d_abstract_command.h>

/// A command that needs no class of its own: it calls the worker function that is named like it,
/// once, with its declared parameters, and publishes the declared results out of the reply.
class HOST_PLUGIN_MANAGEMENT_EXPORT DFunctionCommand : public DAbstractCommand
{
    Q_OBJECT

public:
    /// What such a command is. Parameters without a default must be given by the order.
    struct Form
    {
        QString name; ///< of the command and of the worker function
        QString description;
        QList<Declaration> parameters;
        QList<Declaration> results; ///< names of entries of the reply map
        int timeoutMs = 0; ///< from the write of the request on; 0: the host's own limit
    };

    DFunctionCommand(const Form& form, QObject* parent);

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
    bool commandExecute() override;

private:
    DFunctionCommand(const Form& form, const ParameterMap& parameters, QObject* parent);

    Form m_form;
};
