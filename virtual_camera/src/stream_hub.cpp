// The stream's thread lives from the first viewer to the last. It clears running_ as its last act
// under the mutex, so whoever finds running_ false may join it while holding the mutex. Frames have
// fixed times; a late thread catches up on at most one second and gives up the rest, so that a busy
// machine slows the picture instead of flooding viewers.
#include "stream_hub.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

namespace zucam
{

namespace
{

constexpr std::chrono::seconds latest_catch_up{1}; // further behind, frames are given up

} // namespace

stream_hub::stream_hub(stream_config config) : config_(std::move(config))
{
}

stream_hub::~stream_hub()
{
    stop();
}

void stream_hub::stop()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void stream_hub::add(link& who)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = std::find_if(viewers_.begin(), viewers_.end(),
                                    [&who](const viewer& v) { return v.who == &who; });
    if (known == viewers_.end()) {
        viewers_.push_back({&who, true, false});
    } else {
        *known = {&who, true, false};
    }
    (void)who.send_stream_data(config_.stream, system_header(config_));
    key_requested_ = true;
    start_thread();
}

void stream_hub::remove(link& who)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto gone = std::remove_if(viewers_.begin(), viewers_.end(),
                                     [&who](const viewer& v) { return v.who == &who; });
    viewers_.erase(gone, viewers_.end());
    changed_.notify_all();
}

void stream_hub::request_key_frame()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    key_requested_ = true;
}

void stream_hub::start_thread()
{
    if (running_ || stopping_) {
        return;
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    thread_ = std::thread([this] { run(); });
    running_ = true;
}

bool stream_hub::watched() const
{
    return !stopping_ && !viewers_.empty();
}

void stream_hub::run()
{
    for (;;) {
        try {
            const std::unique_ptr<producer> from = make_producer(config_);
            play(*from);
        } catch (const std::exception& error) {
            report(error.what());
            (void)wait_until(clock::now() + std::chrono::seconds(1));
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!watched()) {
            running_ = false;
            return;
        }
    }
}

void stream_hub::play(producer& from)
{
    const auto period = std::chrono::nanoseconds(std::chrono::seconds(1)) / config_.fps;
    clock::time_point next = clock::now();
    while (wait_until(next)) {
        const std::vector<block> blocks = from.next(sequence_, take_key_request());
        ++sequence_;
        publish(blocks);
        next = std::max(next + period, clock::now() - latest_catch_up);
    }
}

bool stream_hub::wait_until(clock::time_point when)
{
    std::unique_lock<std::mutex> lock(mutex_);
    (void)changed_.wait_until(lock, when, [this] { return !watched(); });
    return watched();
}

bool stream_hub::take_key_request()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(key_requested_, false);
}

void stream_hub::publish(const std::vector<block>& blocks)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (viewer& to : viewers_) {
        for (const block& what : blocks) {
            hand_over(to, config_.stream, what);
        }
    }
}

void stream_hub::hand_over(viewer& to, unsigned stream, const block& what)
{
    to.waits_for_key = to.waits_for_key && !what.entry;
    if (to.waits_for_key) {
        if (to.fell_behind) {
            to.who->count_dropped();
        }
        return;
    }
    to.fell_behind = !to.who->send_stream_data(stream, what.message);
    if (to.fell_behind) {
        to.waits_for_key = true;
        to.who->count_dropped();
    }
}

void stream_hub::report(const std::string& what)
{
    if (what == reported_) {
        return;
    }
    reported_ = what;
    (void)std::fprintf(stderr, "zucam: stream %u: %s\n", config_.stream, what.c_str());
}

} // namespace zucam
