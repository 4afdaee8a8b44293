#pragma once

#include <plugin_management/fast_delegate.h>

#include <QMap>
#include <QString>
#include <QVariant>

/// A map of named values: what an order, an instruction or a reply carries. In a reply the host
/// itself knows "doneOk" (see DAbstractWorker::cbReply()) and what order_failure.h puts there.
using ParameterMap = QMap<QString, QVariant>;

/// Gets each reply to an instruction: its id and the reply map, that of a failure too. False
/// rejects the reply: when it ends the command's last instruction, the order fails.
using ReplyDelegate = fastdelegate::FastDelegate2<unsigned long long, const ParameterMap&, bool>;

/// A worker's function: the instruction's id (0 for the keep-alive), its parameters, a result map
/// that comes empty. After setAsyncResult() true leaves the instruction open for the reply; without
/// it, true ends it well, with the result. False ends it as failed: why, the result tells as
/// OrderFailure::toReply(); else it is "not connected", or refused where there is a connection. It
/// may be called once more for the same instruction when nothing has left (see DAbstractWorker).
using WorkerFunction =
    fastdelegate::FastDelegate3<const unsigned long long, const ParameterMap&, ParameterMap&, bool>;

/// One declared parameter or result of a command.
struct Declaration
{
    QString name; ///< the key in the order's parameters or results
    QString typeTag; ///< "strg", "ui16", "bool", "varL", "varM" or "vart": see checkValue()
    QString description; ///< for people, one line
    QVariant defaultValue; ///< of a parameter, filled in where an order has none; invalid: none
};
