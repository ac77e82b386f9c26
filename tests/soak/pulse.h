// How late the machine is: a thread that has little to do takes its pulse every ten milliseconds
// or sooner; what lies longer between two beats, the machine gave to others.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>

#include "notes.h"

namespace soak
{

class pulse
{
public:
    static constexpr std::int64_t period = 10000;

    // Told of each time in which the machine stood still.
    explicit pulse(std::function<void(std::int64_t from, std::int64_t to)> stalled)
        : stalled_(std::move(stalled))
    {
    }

    void beat(std::int64_t now)
    {
        const std::int64_t late = last_ < 0 ? 0 : now - last_ - period;
        worst_ = std::max(worst_, late);
        if (late >= stall_limit) {
            stalled_(last_, now);
        }
        last_ = now;
    }
    // What came between was no wait of this thread.
    void pause()
    {
        last_ = -1;
    }
    std::int64_t worst() const
    {
        return worst_;
    }

private:
    const std::function<void(std::int64_t, std::int64_t)> stalled_;
    std::int64_t last_ = -1;
    std::int64_t worst_ = 0;
};

} // namespace soak
