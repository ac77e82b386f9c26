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

stream_hub::stream_hub(stream_config config)
    : stream_(config.stream), wanted_(std::move(config)), playing_(wanted_)
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
    auto place = std::find_if(viewers_.begin(), viewers_.end(),
                              [&who](const viewer& v) { return v.who == &who; });
    if (place == viewers_.end()) {
        place = viewers_.insert(place, viewer{});
    }
    *place = {&who, true, false, true};
    key_requested_ = true;
    start_thread();
    (void)introduce(*place);
}

void stream_hub::remove(link& who)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto gone = std::remove_if(viewers_.begin(), viewers_.end(),
                                     [&who](const viewer& v) { return v.who == &who; });
    viewers_.erase(gone, viewers_.end());
    changed_.notify_all();
}

void stream_hub::request_key_frame(const std::function<void()>& promise)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    promise();
    key_requested_ = true;
}

void stream_hub::change(const stream_config& config)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (same_encoding(config, wanted_) && same_sound(config, wanted_)) {
        return;
    }
    wanted_ = config;
    outdated_ = true;
    changed_.notify_all();
}

void stream_hub::start_thread()
{
    if (running_ || stopping_) {
        return;
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    playing_ = wanted_;
    outdated_ = false;
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
            const stream_config config = take_wanted();
            const std::unique_ptr<producer> from = make_producer(config);
            announce(config);
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

// A change is waited for like the time of the next frame, so that a slow stream obeys at once too.
// The times are counted anew from it, or every change would put the frames behind it off by one.
void stream_hub::play(producer& from)
{
    clock::time_point next = clock::now();
    unsigned fps = playing_.fps;
    while (wait_until(next)) {
        if (outdated()) {
            const stream_config config = take_wanted();
            from.adopt(config);
            announce(config);
            fps = config.fps;
            next = clock::now();
        }
        const std::vector<block> blocks = from.next(sequence_, take_key_request());
        ++sequence_;
        publish(blocks);
        const auto period = std::chrono::nanoseconds(std::chrono::seconds(1)) / fps;
        next = std::max(next + period, clock::now() - latest_catch_up);
    }
}

bool stream_hub::outdated()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return outdated_;
}

stream_config stream_hub::take_wanted()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    outdated_ = false;
    return wanted_;
}

// From here on frames are made with this configuration. Who watches is told by the header if what
// it says is different, and goes on at the next frame that one can begin at.
void stream_hub::announce(const stream_config& config)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool described_anew = *system_header(config) != *system_header(playing_);
    const bool encoded_anew = !same_encoding(config, playing_);
    for (viewer& each : viewers_) {
        each.header_due = each.header_due || described_anew;
        each.waits_for_key = each.waits_for_key || encoded_anew;
    }
    playing_ = config;
}

bool stream_hub::wait_until(clock::time_point when)
{
    std::unique_lock<std::mutex> lock(mutex_);
    (void)changed_.wait_until(lock, when, [this] { return !watched() || outdated_; });
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
            hand_over(to, what);
        }
    }
}

void stream_hub::hand_over(viewer& to, const block& what) const
{
    to.waits_for_key = to.waits_for_key && !what.entry;
    if (to.waits_for_key) {
        if (to.fell_behind) {
            to.who->count_dropped();
        }
        return;
    }
    to.fell_behind = !introduce(to) || !to.who->send_stream_data(stream_, what.message);
    if (to.fell_behind) {
        to.waits_for_key = true;
        to.who->count_dropped();
    }
}

// Sends the header that is due. A viewer too slow for it gets it later, with the next key frame.
bool stream_hub::introduce(viewer& to) const
{
    if (to.header_due) {
        to.header_due = !to.who->send_stream_data(stream_, system_header(playing_));
    }
    return !to.header_due;
}

void stream_hub::report(const std::string& what)
{
    if (what == reported_) {
        return;
    }
    reported_ = what;
    (void)std::fprintf(stderr, "zucam: stream %u: %s\n", stream_, what.c_str());
}

} // namespace zucam
