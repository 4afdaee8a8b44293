#pragma once

#include <QString>

/// \a text with its control characters shown as \\xNN, except those in \a allowed.
///
/// Whatever a user, a file, a module or a device says goes through this on its way to a terminal,
/// which it could drive otherwise: colours, titles, answers typed in the user's name.
QString withoutControls(const QString& text, const QString& allowed = QString());
