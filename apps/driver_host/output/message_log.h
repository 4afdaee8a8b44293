#pragma once

#include <QString>

/// Receives what Qt's logging carries. A module tells the reasons for its failures by critical
/// lines only, so the last one is kept for the failure text; the lines themselves are shown under
/// --verbose.
namespace MessageLog {

/// Takes over the log. From then on, warnings go to standard error.
void install();
/// Shows all lines, or no more than the warnings again.
void setVerbose(bool verbose);

/// The message of the last critical line; empty when there was none since forgetCritical().
QString lastCritical();
void forgetCritical();

/// Tells how often the last line came again. To be called before the program ends.
void flush();

/// The message out of a critical line: what stands behind its last ";\t", without "ERROR: " and
/// the order's number.
QString criticalMessage(const QString& line);

} // namespace MessageLog
