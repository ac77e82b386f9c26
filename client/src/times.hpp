// Points in time that a program may have asked for with any number, the largest too.
#pragma once

#include <algorithm>
#include <chrono>

#include "zu/frame.hpp"

namespace zu::detail
{

constexpr Clock::time_point never = Clock::time_point::max();

// `from` plus a wait; a longer one than a year is a year, a negative one is none.
inline Clock::time_point later(Clock::time_point from, std::chrono::milliseconds wait)
{
    using std::chrono::milliseconds;
    constexpr milliseconds year = std::chrono::hours(24 * 365);
    return from + std::clamp(wait, milliseconds(0), year);
}

} // namespace zu::detail
