#pragma once

#include <plugin_management/types.h>
#include <points/profile.h>
#include <points/range_reading.h>
#include <points/value_codec.h>

/// What takes more than one order of the module: a long range or bits to read, several bits to
/// write, values that are read again and again.
struct PointPlan
{
    QString command; ///< of the module: what one request is made with
    ParameterMap parameters; ///< of each order, but for address, kind, count and data
    Points::CommandProfile profile; ///< of that command
    Points::Table table;
    Points::ValueFormat format;
    Points::Span range; ///< items of the table
    QVector<quint16> states; ///< to write, one for each item; empty: it reads
    int intervalMs = 0; ///< from one reading to the next; 0: once
};
