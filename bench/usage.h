// What this process has used so far, and what it has used between two moments.
#pragma once

#include <chrono>
#include <sys/resource.h>

namespace bench
{

struct usage {
    double wall = 0; // seconds
    double cpu = 0;  // seconds, of the process and of the system on its behalf
    double waits = 0;

    static usage now()
    {
        rusage used = {};
        getrusage(RUSAGE_SELF, &used);
        const auto time = std::chrono::steady_clock::now().time_since_epoch();
        return {std::chrono::duration<double>(time).count(),
                in_seconds(used.ru_utime) + in_seconds(used.ru_stime),
                static_cast<double>(used.ru_nvcsw)};
    }

    usage since(const usage& before) const
    {
        return {wall - before.wall, cpu - before.cpu, waits - before.waits};
    }

private:
    static double in_seconds(const timeval& time)
    {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
};

} // namespace bench
