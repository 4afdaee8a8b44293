#include <plugin_management/d_function_command.h>

DFunctionCommand::DFunctionCommand(const Form& form, QObject* parent)
    : DFunctionCommand(form, ParameterMap(), parent)
{
}

DFunctionCommand::DFunctionCommand(const Form& form, const ParameterMap& parameters,
                                   QObject* parent)
    : DAbstractCommand(form.name, parameters, parent), m_form(form)
{
    setDescription(form.description);
    for (const Declaration& p : form.parameters) {
        declareAParameter(p.name, p.typeTag, p.description, p.defaultValue);
    }
    for (const Declaration& r : form.results) {
        declareAResult(r.name, r.typeTag, r.description, r.defaultValue);
    }
}

QSharedPointer<ICommand> DFunctionCommand::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DFunctionCommand(m_form, parameters, parent()));
}

bool DFunctionCommand::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    ParameterMap map;
    for (const Declaration& p : qAsConst(m_form.parameters)) {
        map.insert(p.name, getParameterValue(p.name, p.defaultValue));
    }
    return addInstruction(QString(), m_form.name, map, m_form.timeoutMs, ReplyDelegate()) != 0;
}
