// A log callback that keeps what is delivered to it, for tests of the line format and of delivery.
//
// Without a lock: such a test logs on one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "log.h"
#include "log_tap.h"

namespace support
{

struct delivered {
    int type;
    std::string line;
    std::string bare; // what the application finds in dbgout_info meanwhile
    const char* where;
};

inline std::vector<delivered> kept;

inline void keep(int type, const char* line)
{
    kept.push_back({type, line, dbgout_info, line});
}

inline std::vector<std::string> kept_messages()
{
    std::vector<std::string> out;
    for (const auto& line : kept) {
        out.push_back(line.bare);
    }
    return out;
}

inline void keep_lines_at(int level)
{
    ZU_NET_DEV_SetLogCallback(keep);
    set_log_level(level);
}

} // namespace support
