#pragma once

#include <QByteArray>

/// Writes all of \a bytes, however long \a file makes it wait; false with errno when it cannot be
/// done. May be called from any thread.
bool writeAll(int file, const QByteArray& bytes);
