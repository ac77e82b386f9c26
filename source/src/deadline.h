// A moment by the monotonic clock, which no clock step touches. Any thread.
#pragma once

#include <ctime>
#include <sys/time.h>

inline timespec deadline_in(int seconds)
{
    timespec end = {};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += seconds;
    return end;
}

// What is left of it; nothing once it has passed.
inline timeval time_until(const timespec& end)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long left_us = (end.tv_sec - now.tv_sec) * 1000000 + (end.tv_nsec - now.tv_nsec) / 1000;
    return left_us > 0 ? timeval{left_us / 1000000, left_us % 1000000} : timeval{0, 0};
}

inline bool deadline_has_passed(const timespec& end)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > end.tv_sec || (now.tv_sec == end.tv_sec && now.tv_nsec >= end.tv_nsec);
}
