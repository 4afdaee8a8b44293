#pragma once

#include <plugin_management/types.h>
#include <plugin_management/worker_statistics.h>

#include <QString>

/// What a worker did from \a before to \a after, on one line: "240 done, 3 failed (1 timeout, 2
/// exceptions), 0 ticks skipped, 1 reconnect, 0 bytes dropped, 12.3 s".
QString pollStatistics(const WorkerStatistics& before, const WorkerStatistics& after,
                       qint64 elapsedMs);

/// All counters under their own names.
ParameterMap statisticsValues(const WorkerStatistics& statistics);

/// Orders and repetitions that failed, for whatever reason.
quint64 failedCount(const WorkerStatistics& statistics);
