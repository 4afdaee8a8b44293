#pragma once

#include <QString>

/// How all programs say what went wrong: "NAME: what, why; what to do". The program tells Qt its
/// name first.
QString failureLine(const QString& what);

/// Writes a line to standard error at once, with its control characters shown.
void writeErrorLine(const QString& line);
