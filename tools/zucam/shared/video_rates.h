// How the video flows: frames and bits a second over the last two seconds, and the distance of key
// frames. The receiver thread tells of frames, the main thread asks: one lock.
#pragma once

#include "zu/frame.hpp"

#include <deque>
#include <mutex>
#include <optional>

namespace tool
{

struct rates {
    double frames = 0;                     // a second
    double mbit = 0;                       // a second
    std::uint64_t key_distance_frames = 0; // 0: not known yet
    std::chrono::duration<double> key_distance{0};
    std::optional<zu::Clock::duration> last_frame_age; // of video; nothing before the first one
    std::uint64_t video_frames = 0;
    std::uint64_t key_frames = 0;
    std::chrono::duration<double> longest_gap{0}; // between two frames of video
};

class video_rates
{
public:
    void take(zu::FrameKind kind, bool key, std::size_t size, zu::Clock::time_point arrived);
    rates now(zu::Clock::time_point time) const;

private:
    struct arrival {
        zu::Clock::time_point at;
        std::size_t size;
        bool video;
    };
    void take_video(bool key, zu::Clock::time_point arrived);

    mutable std::mutex mutex_;
    std::deque<arrival> latest_;
    std::optional<zu::Clock::time_point> first_;
    std::optional<zu::Clock::time_point> last_video_;
    std::optional<zu::Clock::time_point> last_key_;
    std::uint64_t since_key_ = 0;
    rates known_;
};

} // namespace tool
