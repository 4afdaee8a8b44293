#pragma once

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#endif

/// What callgrind counts when it is started with --instr-atstart=no: from startCounting() to
/// stopCounting(), so that start-up and end do not count. Without callgrind they do nothing.
inline void startCounting()
{
#ifdef CALLGRIND_START_INSTRUMENTATION
    CALLGRIND_START_INSTRUMENTATION;
#endif
}

inline void stopCounting()
{
#ifdef CALLGRIND_STOP_INSTRUMENTATION
    CALLGRIND_STOP_INSTRUMENTATION;
#endif
}

/// Has callgrind write a dump called \a name of what \a action executes.
template <typename Action>
void countAs(const char* name, const Action& action)
{
    startCounting();
#ifdef CALLGRIND_ZERO_STATS
    CALLGRIND_ZERO_STATS;
#endif
    action();
#ifdef CALLGRIND_DUMP_STATS_AT
    CALLGRIND_DUMP_STATS_AT(name);
#endif
    stopCounting();
}

/// True where everything takes many times as long.
inline bool runsOnValgrind()
{
#ifdef RUNNING_ON_VALGRIND
    return RUNNING_ON_VALGRIND != 0;
#else
    return false;
#endif
}
