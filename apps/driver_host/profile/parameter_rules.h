#pragma once

#include <points/profile.h>

/// Checks a value against what a profile says of its parameter, and brings it into the form that
/// modules take: an address of a host comes out of its brackets. Answers what is wrong, on one line
/// that begins with \a name; empty when nothing is.
QString checkRule(const QString& name, const Points::ParameterProfile& profile, QVariant& value);

/// The address of a host without the brackets around it.
void takeOutOfBrackets(QVariant& host);

/// What to tell of a parameter \a name that is not among \a declared: that it is passed on, and
/// which one may have been meant. Empty for one of which the profile tells.
QString undeclaredNote(const QString& name, const QStringList& declared,
                       const Points::Profile& profile);
