#pragma once

#include <sys/resource.h>

/// User and system time of this process, microseconds.
inline double processorUs()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto us = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
    };
    return us(usage.ru_utime) + us(usage.ru_stime);
}
