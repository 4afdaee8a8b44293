#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <QString>

/// A failure on one line: what failed, why, on what, and what to do about it, such as
/// "read failed: the device answered exception 2, illegal data address (register 9999, 1 value,
/// unit 0)".
///
/// \a parameters are the order's. \a moduleMessage is the module's own last word since the order
/// began, or empty; it is told where the module refused the order.
QString failureText(const QString& command, const OrderFailure& failure,
                    const ParameterMap& parameters, const QString& moduleMessage);

/// The same for an order that never began because its device could not be reached.
QString connectFailureText(const QString& command, const OrderFailure& failure);

/// Why there is no connection yet, while it is tried for.
QString noConnectionYetText(const OrderFailure& failure);
/// Why the connection was lost, which is tried for again.
QString connectionLostText(const OrderFailure& failure);

/// The same for an order that never began because nobody keeps a connection to its device.
QString unconnectedFailureText(const QString& command, const OrderFailure& failure);
