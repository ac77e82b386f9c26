// What all commands share: the common options and the tools that a command works with.
#pragma once

#include "shared/console.h"
#include "shared/stop_signals.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tool
{

using std::chrono::milliseconds;

struct common_options {
    console::manner manner;
    std::optional<std::string> user;
    std::optional<std::string> password;
    std::optional<std::string> camera_list;
    std::optional<milliseconds> timeout;
};

// --seconds and --count, where a command takes them.
struct limits {
    std::optional<milliseconds> seconds;
    std::optional<std::uint64_t> count;
};

// Which of a camera's streams.
struct stream_choice {
    std::uint32_t number = 0; // 0 to 3
    std::uint8_t type = 1;    // 1 to 5, or 7: the device's code
};

struct toolbox {
    console& out;
    stop_signals& signals;
    const common_options& options;
};

constexpr milliseconds usual_deadline{5000};

inline milliseconds deadline_of(const toolbox& tools)
{
    return tools.options.timeout.value_or(usual_deadline);
}

} // namespace tool
