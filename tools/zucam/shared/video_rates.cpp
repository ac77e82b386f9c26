// A window of two seconds over what has arrived.
#include "shared/video_rates.h"

#include <algorithm>

namespace tool
{

namespace
{

constexpr std::chrono::duration<double> window{2.0};
constexpr double bits_per_mbit = 1e6;

} // namespace

void video_rates::take(zu::FrameKind kind, bool key, std::size_t size,
                       zu::Clock::time_point arrived)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    first_ = first_.value_or(arrived);
    const bool video = kind == zu::FrameKind::video;
    latest_.push_back({arrived, size, video});
    while (arrived - latest_.front().at > window) {
        latest_.pop_front();
    }
    if (video) {
        take_video(key, arrived);
    }
}

void video_rates::take_video(bool key, zu::Clock::time_point arrived)
{
    known_.video_frames += 1;
    since_key_ += 1;
    if (last_video_) {
        const std::chrono::duration<double> gap = arrived - *last_video_;
        known_.longest_gap = std::max(known_.longest_gap, gap);
    }
    last_video_ = arrived;
    if (!key) {
        return;
    }
    if (last_key_) {
        known_.key_distance_frames = since_key_;
        known_.key_distance = arrived - *last_key_;
    }
    known_.key_frames += 1;
    since_key_ = 0;
    last_key_ = arrived;
}

rates video_rates::now(zu::Clock::time_point time) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    rates result = known_;
    if (!first_ || time <= *first_) {
        return result;
    }
    const std::chrono::duration<double> span =
        std::min(std::chrono::duration<double>(time - *first_), window);
    for (const arrival& each : latest_) {
        if (time - each.at <= window) {
            result.frames += each.video ? 1 : 0;
            result.mbit += static_cast<double>(each.size) * 8 / bits_per_mbit;
        }
    }
    result.frames /= span.count();
    result.mbit /= span.count();
    if (last_video_) {
        result.last_frame_age = std::max(time - *last_video_, zu::Clock::duration::zero());
    }
    return result;
}

} // namespace tool
