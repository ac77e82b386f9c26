// Threads that do one piece of work together. However it ends, they are told to stop and waited
// for: also when one of them cannot be made. Used by one thread.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace tool
{

class crew
{
public:
    // The threads look at `stop` and end soon when it is set.
    explicit crew(std::atomic<bool>& stop) : stop_(stop)
    {
    }
    ~crew()
    {
        stop_ = true;
        for (std::thread& each : threads_) {
            each.join();
        }
    }
    crew(const crew&) = delete;
    crew& operator=(const crew&) = delete;

    void add(std::function<void()> work) // throws std::system_error
    {
        threads_.emplace_back(std::move(work));
    }

private:
    std::atomic<bool>& stop_;
    std::vector<std::thread> threads_;
};

} // namespace tool
