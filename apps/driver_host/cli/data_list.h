#pragma once

#include <QString>
#include <QStringList>

/// The values of a list as it is typed: "1,2", "[1,2]" or a JSON array. False, with what is wrong
/// in \a misfit, when a bracket is missing.
bool splitData(const QString& text, QStringList& values, QString* misfit);
