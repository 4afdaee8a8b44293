#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <QDateTime>
#include <QJsonValue>
#include <QString>

/// Whose event it is. What is undefined or empty is left out.
struct EventSource
{
    QJsonValue id = QJsonValue::Undefined; ///< a text or a number, as the order was given
    QString device;
    QString command;
};

/// What an order reports as JSON: each event one object on a line of its own, with its line end,
/// and its members in the order in which a reader wants them. Times are written in UTC.
namespace EventJson {

/// The order is on its way.
QString started(const EventSource& source, const QDateTime& time);
/// A result has a new value.
QString result(const EventSource& source, const QDateTime& time, const QString& name,
               const QVariant& value);
/// The connection on which an order goes on was lost, or is there again; \a message is the text
/// for people.
QString connection(const EventSource& source, const QDateTime& time, bool connected,
                   const QString& message);
/// The order, or one repetition of it, failed; \a message is the text for people.
QString error(const EventSource& source, const QDateTime& time, const OrderFailure& failure,
              const QString& message);
/// The order has ended; \a results are the last values.
QString finished(const EventSource& source, const QDateTime& time, bool ok,
                 const ParameterMap& results);

} // namespace EventJson
