#pragma once

#include "output/failure_subject.h"

#include <QString>

/// A failure on one line: what failed, why, on what, and what to do about it, such as
/// "read failed: the device answered exception 2, illegal data address (level 7, unit 0)".
QString failureText(const QString& command, const OrderFailure& failure,
                    const FailureSubject& subject);

/// The same for an order that never began because its device could not be reached.
QString connectFailureText(const QString& command, const OrderFailure& failure);

/// The text for a connection that was lost, with what to do about it.
QString lossText(const Points::Profile& profile, const OrderFailure& failure);
/// Why there is no connection yet, while it is tried for.
QString noConnectionYetText(const OrderFailure& failure);

/// The same for an order that never began because nobody keeps a connection to its device.
QString unconnectedFailureText(const QString& command, const OrderFailure& failure);
