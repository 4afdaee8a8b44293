#pragma once

#include <plugin_management/i_command.h>

class DAbstractCommand;

/// Makes the command of an order out of its prototype. It has no parent: the order owns it.
QSharedPointer<ICommand> createOrderCommand(const DAbstractCommand& prototype,
                                            const ParameterMap& parameters);
