// What frames cost that come at their time: looked at for half a second, or until enough have come
// when the machine keeps the device from sending.
#pragma once

#include <chrono>
#include <stdexcept>
#include <thread>

#include "usage.h"

namespace bench
{

struct frame_cost {
    double cpu; // seconds, for a frame
    double waits;
};

// `clients` says by frames() how many have come so far, in all.
template <class Clients>
void wait_for_frames(const Clients& clients, long how_many)
{
    constexpr std::chrono::milliseconds look_again{10};
    constexpr std::chrono::seconds patience{20};
    const auto end = std::chrono::steady_clock::now() + patience;
    while (clients.frames() < how_many) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("no frames come");
        }
        std::this_thread::sleep_for(look_again);
    }
}

template <class Clients>
frame_cost watch(const Clients& clients)
{
    constexpr std::chrono::milliseconds warm_up{100};
    constexpr std::chrono::milliseconds window{500};
    constexpr long enough = 10;
    wait_for_frames(clients, 1);
    std::this_thread::sleep_for(warm_up);
    const long frames_before = clients.frames();
    const usage before = usage::now();
    std::this_thread::sleep_for(window);
    wait_for_frames(clients, frames_before + enough);
    const usage used = usage::now().since(before);
    const auto frames = static_cast<double>(clients.frames() - frames_before);
    return {used.cpu / frames, used.waits / frames};
}

} // namespace bench
