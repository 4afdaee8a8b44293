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
        Nothing, ///< no order at all
    };

    Kind kind = Kind::Nothing;
    QJsonValue id = QJsonValue::Undefined; ///< a text or a number; undefined when there is none
    QString device;
    QString command; ///< "statistics" for that kind
    ParameterMap parameters;
    QString error; ///< what is wrong with the line; empty: nothing

    /// True when the line began an order, right or wrong, which then has to be ended under its id.
    bool beginsOrder() const { return kind == Kind::Order || kind == Kind::Statistics; }
};

/// Reads one line: {"id","device","command","parameters"}, {"id","device","statistics":true} or
/// {"id","stop":true}. Numbers among the parameters come as int where one holds them.
OrderLine parseOrderLine(const QByteArray& text);
