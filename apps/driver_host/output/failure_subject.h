#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>
#include <points/profile.h>

/// What a failed order was about, as far as it is known.
struct FailureSubject
{
    QString title; ///< what a place is; empty: there is none
    QString place; ///< the first one that was asked for
    int quantity = -1; ///< values asked for or written; -1: not known
    ParameterMap parameters; ///< all of the order's
    QString moduleMessage; ///< the module's own last word since the order began; or empty
    bool hasAnswered = false; ///< the device has answered anything at all before
    QString hint; ///< what the failure may mean, and what to do; or empty
};

/// What the profile tells of an order of \a command with these parameters that failed.
FailureSubject subjectOf(const Points::Profile& profile, const QString& command,
                         const ParameterMap& parameters, const OrderFailure& failure);

/// What the profile has to say of a connection that was lost so; or empty.
QString lossHint(const Points::Profile& profile, const OrderFailure& loss);
