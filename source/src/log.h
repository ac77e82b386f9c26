// The diagnostic log: level gate, one line, delivery.
//
// Three spellings and no more: LOG_TRACE (level 2, type 7), LOG_ERROR (levels 1 and 2, type 0) and
// LOG_LINE for the few lines with a gate and a type of their own. The level is tested before any
// argument is evaluated. `function` is the name that the line carries: `__func__` in an entry
// point, handed down where a helper writes the line on behalf of an entry point or a thread
// function.
//
// Runs on any thread and takes no lock. Every line goes through the same two buffers and the same
// time stamp, as the interface promises to log callbacks; lines written at once may be mixed.
#pragma once

#include <atomic>

#include "zu_net_dev_api.h"

// The file field of every line, whichever file the statement stands in.
constexpr char log_source_file[] = "../source/src/zu_net_dev_api.cpp";

extern std::atomic<int> log_level;

enum log_gate {
    log_at_every_level,
    log_at_error_levels,
    log_at_trace_level,
};

inline bool log_wanted(log_gate gate)
{
    const int level = log_level.load(std::memory_order_relaxed);
    if (gate == log_at_every_level) {
        return true;
    }
    return level == ZU_LOG_LEVEL_TRACE ||
           (gate == log_at_error_levels && level == ZU_LOG_LEVEL_ERROR);
}

// Builds one line and delivers it, whatever the level. Leaves errno as it was.
void log_write(int type, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#define LOG_LINE(gate, type, function, ...)                                                        \
    do {                                                                                           \
        if (log_wanted(gate)) {                                                                    \
            log_write(type, function, __LINE__, __VA_ARGS__);                                      \
        }                                                                                          \
    } while (0)

#define LOG_TRACE(function, ...)                                                                   \
    LOG_LINE(log_at_trace_level, ZU_LOG_TYPE_TRACE, function, __VA_ARGS__)

#define LOG_ERROR(function, ...)                                                                   \
    LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_ERROR, function, __VA_ARGS__)

// The current local time to the hundredth of a second, in a buffer shared by all threads; empty
// when the clock cannot be read.
const char* format_time();

// Hands one finished line to the installed callback, or to standard output when there is none.
void info_call(int type, const char* info, const char* dbgout_info);
