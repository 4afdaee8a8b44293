#pragma once

#include <plugin_management/d_abstract_command.h>

/// "listen": the same read as "read", repeated until the order "stopListening".
///
/// "recurrentInterval" is the interval in ms, 50 when the order has none; it is passed on as it
/// comes.
class DCmdDrvListen : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdDrvListen(const ParameterMap& parameters, QObject* parent);
    explicit DCmdDrvListen(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
};
