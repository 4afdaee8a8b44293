#pragma once

#include <plugin_management/types.h>

#include <QStringList>
#include <QVector>

/// A host in place of the real one: it implements the classes of the kit, writes down every call
/// that the module makes of them, and answers as it is told.
namespace recording_host {

/// A value with its type: 2 is an int or an id, 2u a uint, true a bool, 'a' a text, x01ff bytes, [1
/// 2] a list, {a=1 b=2} a map, - an invalid one; of other types the name is shown.
QString show(const QVariant& value);

/// Since the last time: one line per call, the operation and its arguments. A signal of the plug-in
/// object is one as well.
QStringList takeCalls();

struct Answers
{
    bool execute = true; ///< of the base commandExecute()
    quint64 instructionId = 7;
    bool stop = true; ///< of stopTheInstruction()
    bool update = true; ///< of commandUpdateResult()
    bool finish = true; ///< false: commandFinish() turns success into failure
    quint64 currentOrderId = 31;
    ParameterMap orderParameters; ///< of the current order
};
inline Answers answers;
inline ReplyDelegate delegate; ///< of the last instruction
inline const ParameterMap* resultMap = nullptr; ///< the only one for setAsyncResult() to be given

/// Calls a function of the last worker, with the result map {r=1}.
bool callFunction(const QString& name, quint64 orderId, const ParameterMap& parameters);

} // namespace recording_host
