#include "output/poll_statistics.h"

#include <QStringList>

#include <array>

namespace {

struct FailureKind
{
    const char* one;
    const char* many;
    quint64 WorkerStatistics::*counter;
};

constexpr std::array<FailureKind, 5> failureKinds{{
    {"timeout", "timeouts", &WorkerStatistics::timeouts},
    {"exception", "exceptions", &WorkerStatistics::exceptions},
    {"bad reply", "bad replies", &WorkerStatistics::badReplies},
    {"not connected", "not connected", &WorkerStatistics::notConnected},
    {"other", "others", &WorkerStatistics::otherFailures},
}};

struct Counter
{
    const char* name;
    quint64 WorkerStatistics::*counter;
};

constexpr std::array<Counter, 14> counters{{
    {"done", &WorkerStatistics::done},
    {"timeouts", &WorkerStatistics::timeouts},
    {"exceptions", &WorkerStatistics::exceptions},
    {"badReplies", &WorkerStatistics::badReplies},
    {"notConnected", &WorkerStatistics::notConnected},
    {"otherFailures", &WorkerStatistics::otherFailures},
    {"ticksSkipped", &WorkerStatistics::ticksSkipped},
    {"reconnects", &WorkerStatistics::reconnects},
    {"droppedBytes", &WorkerStatistics::droppedBytes},
    {"droppedReplies", &WorkerStatistics::droppedReplies},
    {"roundTripLeastUs", &WorkerStatistics::roundTripLeastUs},
    {"roundTripMeanUs", &WorkerStatistics::roundTripMeanUs},
    {"roundTripP99Us", &WorkerStatistics::roundTripP99Us},
    {"roundTripMostUs", &WorkerStatistics::roundTripMostUs},
}};
static_assert(sizeof(WorkerStatistics) == counters.size() * sizeof(quint64),
              "every counter is in the table");

QString counted(quint64 count, const char* one, const char* many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}

QString milliseconds(quint64 us) { return QString::number(double(us) / 1000.0, 'f', 2); }

// Empty before the first reply.
QString roundTrips(const WorkerStatistics& statistics)
{
    if (statistics.roundTripMostUs == 0) {
        return {};
    }
    return QStringLiteral(", round trip min/mean/p99/max %1/%2/%3/%4 ms")
        .arg(milliseconds(statistics.roundTripLeastUs), milliseconds(statistics.roundTripMeanUs),
             milliseconds(statistics.roundTripP99Us), milliseconds(statistics.roundTripMostUs));
}

} // namespace

QString pollStatistics(const WorkerStatistics& before, const WorkerStatistics& after,
                       qint64 elapsedMs)
{
    const auto since = [&](quint64 WorkerStatistics::*counter) {
        return after.*counter - before.*counter;
    };
    QStringList reasons;
    for (const FailureKind& kind : failureKinds) {
        const quint64 count = since(kind.counter);
        if (count > 0) {
            reasons.append(counted(count, kind.one, kind.many));
        }
    }
    const QString why = reasons.isEmpty()
        ? QString()
        : QStringLiteral(" (%1)").arg(reasons.join(QLatin1String(", ")));
    return QStringLiteral("%1 done, %2 failed%3, %4, %5, %6, %7 s%8")
        .arg(QString::number(since(&WorkerStatistics::done)),
             QString::number(failedCount(after) - failedCount(before)), why,
             counted(since(&WorkerStatistics::ticksSkipped), "tick skipped", "ticks skipped"),
             counted(since(&WorkerStatistics::reconnects), "reconnect", "reconnects"),
             counted(since(&WorkerStatistics::droppedBytes), "byte dropped", "bytes dropped"),
             QString::number(double(elapsedMs) / 1000.0, 'f', 1), roundTrips(after));
}

ParameterMap statisticsValues(const WorkerStatistics& statistics)
{
    ParameterMap values;
    for (const Counter& each : counters) {
        values.insert(QLatin1String(each.name), statistics.*each.counter);
    }
    return values;
}

quint64 failedCount(const WorkerStatistics& statistics)
{
    quint64 failed = 0;
    for (const FailureKind& kind : failureKinds) {
        failed += statistics.*kind.counter;
    }
    return failed;
}
