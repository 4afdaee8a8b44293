#include "log_line.h"

#include <utilities/utilities.h>

#include <QObject>
#include <QThread>

namespace log_line {

namespace {

QDebug begin(const QObject* object, const Entry& entry)
{
    // Without file, line and function: the place is part of the text, not of the context.
    QDebug stream = QMessageLogger(nullptr, 0, nullptr).critical();
    stream << "\n"
           << getDate() << ";\t"
           << "Thread =" << QThread::currentThread() << ";\t";
    if (object != nullptr) {
        stream << "This =" << object;
    } else {
        stream << "static";
    }
    stream << ";\t" << entry.unit << ";\t" << entry.line << ";\t";
    return stream;
}

} // namespace

QDebug error(const QObject* object, const Entry& entry)
{
    return begin(object, entry) << entry.message;
}

QDebug orderError(const QObject* object, const Entry& entry, quint64 orderId)
{
    return begin(object, entry) << "ERROR: OrderId =" << orderId << entry.message;
}

} // namespace log_line
