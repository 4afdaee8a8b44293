#pragma once

#include <plugin_management/types.h>

#include <QByteArray>
#include <QJsonValue>
#include <QString>

/// What one line of input asks for.
struct OrderLine
{
    enum class Kind {
        Order, ///< run a command of a device
        Stop, ///< end the order with this id
        Statistics, ///< tell what a device's worker has counted
        Link, ///< set the link options of a device
        Nothing, ///< no order at all
    };

    Kind kind = Kind::Nothing;
    QJsonValue id = QJsonValue::Undefined; ///< a text or a number; undefined when there is none
    QString device;
    QString command; ///< "statistics" for that kind
    ParameterMap parameters; ///< or the link options
    QString error; ///< what is wrong with the line; empty: nothing

    /// True when the line began an order, right or wrong, which then has to be ended under its id.
    bool beginsOrder() const { return kind == Kind::Order || kind == Kind::Statistics; }
};

/// Reads one line: {"id","device","command","parameters"}, {"id","device","statistics":true},
/// {"id","stop":true} or {"device","link"}, which may have an id. Numbers among the parameters come
/// as int where one holds them.
OrderLine parseOrderLine(const QByteArray& text);
