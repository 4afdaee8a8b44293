#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>

namespace Points {

enum class Quality {
    Good, ///< the value is what the device told at that time
    Uncertain, ///< the device told it, and something says that it may no longer be so
    Bad, ///< there is no value
};

/// A value with what one has to know to rely on it. A value: copy it, use it on any thread.
struct PointValue
{
    QVariant value; ///< what was read last; of a Bad one that was never read invalid
    Quality quality = Quality::Bad;
    QDateTime time; ///< when the reply came that carried the value; invalid: none has
    QString reason; ///< why it is not Good, for people

    /// What a reply carried.
    static PointValue good(const QVariant& value, const QDateTime& time)
    {
        return {value, Quality::Good, time, {}};
    }
    /// The value after a reading failed, or none was made: it is old, so it is not Good.
    PointValue failed(const QString& why) const { return {value, Quality::Bad, time, why}; }
    /// The same, no better than Uncertain once it is older than \a longestMs at \a now. A time that
    /// lies ahead, after a clock was set back, is old as well.
    PointValue at(const QDateTime& now, qint64 longestMs) const
    {
        const qint64 age = time.isValid() ? time.msecsTo(now) : longestMs + 1;
        const bool isOld = quality == Quality::Good && (age > longestMs || age < 0);
        return isOld ? PointValue{value, Quality::Uncertain, time, QStringLiteral("it is old")}
                     : *this;
    }
};

} // namespace Points
