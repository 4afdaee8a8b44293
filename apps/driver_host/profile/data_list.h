#pragma once

#include <QString>
#include <QStringList>

/// The values of a list as it is \a given: "1,2", "[1,2]" or a JSON array. False, with what is
/// wrong in \a misfit, when a bracket is missing.
bool splitData(const QString& given, QStringList& values, QString* misfit);
