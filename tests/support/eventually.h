// Waiting for a condition: the only way a test waits for anything.
#pragma once

#include <chrono>
#include <thread>

namespace support
{

// Generous on purpose: it is only used up by a failing test or by a machine that is very busy.
constexpr std::chrono::milliseconds long_enough{60000};

// Polls until `condition` holds; false when the deadline passes first.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds deadline = long_enough)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // poll interval
    }
    return true;
}

// Polls until `count()` is at least `wanted`; false when it has not grown for `deadline`. Ten
// thousand things take a busy machine as long as they take, so each of them begins the deadline
// anew.
template <class Count, class Number>
bool grows_to(Count count, Number wanted, std::chrono::milliseconds deadline = long_enough)
{
    Number so_far = count();
    while (so_far < wanted) {
        if (!eventually([&] { return count() > so_far; }, deadline)) {
            return false;
        }
        so_far = count();
    }
    return true;
}

// Watches that `condition` holds for the whole of `duration`, its end included; for what must not
// happen.
template <class Condition>
bool all_along(Condition condition, std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    do {
        if (!condition()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // poll interval
    } while (std::chrono::steady_clock::now() < end);
    return condition();
}

} // namespace support
