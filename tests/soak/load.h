// The threads that make requests, and log out and in, for as long as it lives.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "viewer.h"

namespace soak
{

using viewers = std::vector<std::unique_ptr<viewer>>;

// Does it with the first so many viewers, on several threads, and waits for all.
void on_each(const viewers& all, std::size_t count, const std::function<void(viewer&)>& what);

class load
{
public:
    // With `disturbing`, streams are stopped and started and logins come and go as well.
    load(const viewers& all, std::size_t count, std::size_t threads, std::uint32_t seed,
         bool disturbing);
    ~load(); // waits until what is under way has returned
    load(const load&) = delete;
    load& operator=(const load&) = delete;

private:
    void work(std::uint32_t seed);
    void do_something(viewer& with, std::mt19937& random) const;
    bool over_after_pause(std::mt19937& random);

    const viewers& all_;
    const std::size_t count_;
    const bool disturbing_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool over_ = false;
    std::vector<std::thread> threads_;
};

} // namespace soak
