// The threads that make requests. See load.h.
#include "load.h"

#include <algorithm>
#include <chrono>

namespace soak
{

namespace
{

constexpr std::size_t threads_at_once = 32;
constexpr int longest_pause_ms = 60;

// Of a hundred turns of a thread.
constexpr int logins_renewed = 2;
constexpr int streams_interrupted = 4;

} // namespace

void on_each(const viewers& all, std::size_t count, const std::function<void(viewer&)>& what)
{
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::min(threads_at_once, count); i++) {
        threads.emplace_back([&] {
            for (std::size_t k = next++; k < count; k = next++) {
                what(*all[k]);
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
}

load::load(const viewers& all, std::size_t count, std::size_t threads, std::uint32_t seed,
           bool disturbing)
    : all_(all), count_(count), disturbing_(disturbing)
{
    for (std::size_t i = 0; i < threads; i++) {
        threads_.emplace_back([this, own = seed + static_cast<std::uint32_t>(i)] { work(own); });
    }
}

load::~load()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        over_ = true;
    }
    changed_.notify_all();
    for (std::thread& each : threads_) {
        each.join();
    }
}

void load::work(std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> anyone(0, count_ - 1);
    while (!over_after_pause(random)) {
        do_something(*all_[anyone(random)], random);
    }
}

void load::do_something(viewer& with, std::mt19937& random) const
{
    const int turn = std::uniform_int_distribution<int>(0, 99)(random);
    if (disturbing_ && turn < logins_renewed) {
        with.log_out_and_in(turn % 2 == 0);
    } else if (disturbing_ && turn < logins_renewed + streams_interrupted) {
        with.interrupt();
    } else {
        with.ask_something(random);
    }
}

bool load::over_after_pause(std::mt19937& random)
{
    const std::chrono::milliseconds pause(
        std::uniform_int_distribution<int>(0, longest_pause_ms)(random));
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, pause, [this] { return over_; });
}

} // namespace soak
