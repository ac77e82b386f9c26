// One stream of a camera: its viewers and, while there are any, the thread that makes its frames.
//
// A frame is made once and shared by all viewers. The mutex guards everything but the producer,
// which belongs to the thread. A link is a viewer from add() to remove(), and must be removed
// before it is destroyed; nothing is handed to it after remove() has returned.
#ifndef ZUCAM_STREAM_HUB_H
#define ZUCAM_STREAM_HUB_H

#include "link.h"
#include "producer.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zucam
{

class stream_hub
{
public:
    explicit stream_hub(stream_config config);
    ~stream_hub();
    stream_hub(const stream_hub&) = delete;
    stream_hub& operator=(const stream_hub&) = delete;

    // Hands the system header to the link at once, or, where the link is full, in front of its
    // first frame; and frames from the next key frame on, which is asked for. A link that is a
    // viewer already begins anew.
    void add(link& viewer);
    void remove(link& viewer);
    // The next frame that is begun will be a key frame; `promise` says so first, before that frame
    // can be on its way.
    void request_key_frame(const std::function<void()>& promise);
    // The stream goes on with these measures from its next frame on, which is a key frame unless
    // the sound alone is different. Viewers are told by a new system header where that changes.
    void change(const stream_config& config);
    void stop(); // ends and joins the thread; one caller at a time

private:
    using clock = std::chrono::steady_clock;
    struct viewer {
        link* who;
        bool waits_for_key;
        bool fell_behind; // it waits because it was too slow
        bool header_due;  // in front of the next frame that it may begin at
    };

    void start_thread();
    void run();
    void play(producer& from);
    stream_config take_wanted();
    void announce(const stream_config& config);
    bool outdated();
    bool wait_until(clock::time_point when);
    bool watched() const;
    bool take_key_request();
    void publish(const std::vector<block>& blocks);
    void report(const std::string& what);
    void hand_over(viewer& to, const block& what) const;
    bool introduce(viewer& to) const;

    const unsigned stream_;
    std::mutex mutex_;
    std::condition_variable changed_;
    stream_config wanted_;
    stream_config playing_; // what the frames of the moment are made with
    bool outdated_ = false; // playing_ is not what is wanted
    std::vector<viewer> viewers_;
    bool key_requested_ = false;
    bool stopping_ = false;
    bool running_ = false;
    std::uint64_t sequence_ = 0; // of the thread; one thread follows the other by join
    std::string reported_;       // likewise: the same trouble is told once
    std::thread thread_;
};

} // namespace zucam

#endif
