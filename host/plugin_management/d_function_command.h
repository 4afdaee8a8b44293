#pragma once

#include <plugin_management/d_abstract_command.h>

/// A command that needs no class of its own: it calls the worker function that is named like it,
/// once, with its declared parameters and no others, and publishes those declared results that the
/// reply holds. The order fails when the function or its reply does.
class HOST_PLUGIN_MANAGEMENT_EXPORT DFunctionCommand : public DAbstractCommand
{
    Q_OBJECT

public:
    /// What such a command is. A parameter that has no default and that the order does not give
    /// comes as an invalid value.
    struct Form
    {
        QString name; ///< of the command and of the worker function
        QString description; ///< for people, one line
        QList<Declaration> parameters;
        QList<Declaration> results; ///< names of entries of the reply map
        int timeoutMs = 0; ///< from the write of the request; 0: the host's own limit, 5000 ms
    };

    /// \a parent owns it.
    DFunctionCommand(const Form& form, QObject* parent);

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
    bool commandExecute() override;

private:
    DFunctionCommand(const Form& form, const ParameterMap& parameters, QObject* parent);

    Form m_form;
};
