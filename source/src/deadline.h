// A moment by the monotonic clock, which no clock step touches. Any thread.
#pragma once

#include <ctime>

inline timespec deadline_in(int seconds)
{
    timespec end = {};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += seconds;
    return end;
}

inline bool deadline_has_passed(const timespec& end)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > end.tv_sec || (now.tv_sec == end.tv_sec && now.tv_nsec >= end.tv_nsec);
}
