#pragma once

#include <plugin_management/d_abstract_command.h>

/// "connect", stopped by "disconnect", of a driver that needs no more to connect than "host" and
/// "port". Its result "connected" tells each time that the connection is made or lost; it is
/// re-opened until the order is stopped, which closes it.
class HOST_PLUGIN_MANAGEMENT_EXPORT DConnectCommand : public DAbstractCommand
{
    Q_OBJECT

public:
    /// \a parent owns it. \a defaultPort is the protocol's own, 1 to 65535; without one each order
    /// must name its port.
    explicit DConnectCommand(QObject* parent, const QVariant& defaultPort = QVariant());

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override;
    bool commandExecute() override;
    bool setReply(quint64 instructionId, const ParameterMap& reply) override;
    bool finishTheCommand(bool& ok) override;

private:
    DConnectCommand(const ParameterMap& parameters, const QVariant& defaultPort, QObject* parent);

    QVariant m_defaultPort;
    quint64 m_instruction = 0;
};
