#pragma once

#include <plugin_management/order_failure.h>
#include <points/profile.h>

/// What the results of a command that is done say when they do not confirm that the device did what
/// it was told; None when they do, or nothing is known of it.
OrderFailure unconfirmed(const Points::CommandProfile& profile, const ParameterMap& results);
