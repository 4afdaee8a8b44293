#pragma once

#include <QThread>

/// The kit's thread rule: what an object can do is called on the thread that it lives on.
///
/// Ends the program with a text that names \a operation when that is broken; in builds without
/// Qt's assertions (all but Debug, unless QT_FORCE_ASSERTS is defined) it is nothing at all. May
/// be called on any thread. A module may guard what its own classes offer by it.
inline void assertOwnThread(const QObject& object, const char* operation)
{
    Q_UNUSED(object)
    Q_UNUSED(operation)
    Q_ASSERT_X(object.thread() == QThread::currentThread(), operation,
               "called on another thread than the one that its object lives on");
}
