// What has happened, in order: told by any thread, printed by one. Times are shown by the clock on
// the wall, reckoned from the clock of the layer, which no clock step touches.
#pragma once

#include "shared/console.h"

#include "zu/frame.hpp"

#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>

namespace tool
{

class timeline
{
public:
    // `details` become words behind the event, or members of its object. What is minor is printed
    // with -v, or as an object.
    void add(zu::Clock::time_point at, const std::string& event, const json& details,
             bool minor = false);

    // Prints what has come since, and forgets it. Throws as console::data does.
    void print(console& out);

private:
    struct entry {
        zu::Clock::time_point at;
        std::string event;
        json details;
        bool minor;
    };
    void print(console& out, const entry& each) const;

    const zu::Clock::time_point began_ = zu::Clock::now();
    std::mutex mutex_;
    std::deque<entry> entries_;
};

} // namespace tool
