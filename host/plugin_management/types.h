#pragma once

#include <plugin_management/fast_delegate.h>

#include <QMap>
#include <QString>
#include <QVariant>

/// A map of named values: what an order, an instruction or a reply carries.
using ParameterMap = QMap<QString, QVariant>;

/// Gets the reply to an instruction: its id and the reply map. True when the reply was accepted.
using ReplyDelegate = fastdelegate::FastDelegate2<unsigned long long, const ParameterMap&, bool>;

/// A worker's function: order id, parameters, result map to fill. True when the request went out
/// (or, for a function that answers at once, when it succeeded).
using WorkerFunction =
    fastdelegate::FastDelegate3<const unsigned long long, const ParameterMap&, ParameterMap&, bool>;

/// One declared parameter or result of a command.
struct Declaration
{
    QString name;
    QString typeTag; ///< "strg", "ui16", "bool", "varL", "vart" or "varM"
    QString description;
    QVariant defaultValue; ///< invalid: none
};
