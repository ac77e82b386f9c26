// When each block of sound is heard. Blocks arrive unevenly and are heard evenly: a block begins
// where the one before ended, unless that would be too far from its arrival. Times are in units of
// 1/90000 s. Used by one thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tool
{

constexpr int ticks_per_second = 90000;

class sound_times
{
public:
    // The time of a block of so many samples, 8000 of which last a second. Never goes back.
    std::int64_t take(std::size_t samples, std::int64_t arrived)
    {
        if (arrived - end() >= patience) {
            began_ = arrived;
            samples_ = 0;
        }
        const std::int64_t time = end();
        samples_ += static_cast<std::int64_t>(samples);
        return time;
    }

private:
    static constexpr std::int64_t patience = ticks_per_second / 5;

    // A sample does not last a whole number of ticks, so they are counted.
    std::int64_t end() const
    {
        return began_ + samples_ * ticks_per_second / 8000;
    }

    std::int64_t began_ = 0;
    std::int64_t samples_ = 0; // since then
};

} // namespace tool
