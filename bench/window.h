// What blocks cost that come at their time: looked at for a while, or until enough have come when
// the machine keeps the device from sending.
#pragma once

#include <chrono>
#include <stdexcept>
#include <thread>

#include "usage.h"

namespace bench
{

struct block_cost {
    double cpu; // seconds, for a block
    double waits;
};

// `clients` says by taken() how many have come so far, in all.
template <class Clients>
void wait_for_blocks(const Clients& clients, long how_many)
{
    constexpr std::chrono::milliseconds look_again{10};
    constexpr std::chrono::seconds patience{20};
    const auto end = std::chrono::steady_clock::now() + patience;
    while (clients.taken() < how_many) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("nothing comes");
        }
        std::this_thread::sleep_for(look_again);
    }
}

template <class Clients>
void warm_up(const Clients& clients)
{
    constexpr std::chrono::milliseconds time{100};
    wait_for_blocks(clients, 1);
    std::this_thread::sleep_for(time);
}

template <class Clients>
block_cost watch(const Clients& clients)
{
    constexpr std::chrono::milliseconds window{400};
    constexpr long enough = 10;
    const long taken_before = clients.taken();
    const usage before = usage::now();
    std::this_thread::sleep_for(window);
    wait_for_blocks(clients, taken_before + enough);
    const usage used = usage::now().since(before);
    const auto blocks = static_cast<double>(clients.taken() - taken_before);
    return {used.cpu / blocks, used.waits / blocks};
}

} // namespace bench
