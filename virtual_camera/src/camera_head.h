// Where the camera looks: pan, tilt and zoom, and the movement under way.
//
// A movement is kept as where and when it began and how fast it goes; the view at any moment
// follows from that, so that all streams show the same view whatever their frame rates. Link
// threads command, stream threads look; the mutex guards everything.
#ifndef ZUCAM_CAMERA_HEAD_H
#define ZUCAM_CAMERA_HEAD_H

#include <chrono>
#include <cstdint>
#include <mutex>

namespace zucam
{

// Pan -1000 (left end) to 1000, tilt -1000 (bottom) to 1000, zoom 1000 (widest) to 4000.
struct head_view {
    double pan = 0;
    double tilt = 0;
    double zoom = 1000;
};

constexpr head_view lowest_view = {-1000, -1000, 1000};
constexpr head_view highest_view = {1000, 1000, 4000};

constexpr std::uint32_t fastest_speed = 64;

// The camera's own command numbers, as they come with a pan-tilt-zoom request.
enum class head_command : std::uint32_t {
    stop = 0,
    up = 1,
    down = 2,
    left = 3,
    right = 4,
    left_up = 5,
    right_up = 6,
    left_down = 7,
    right_down = 8,
    zoom_in = 9,
    zoom_out = 10
};

class camera_head
{
public:
    using clock = std::chrono::steady_clock;

    explicit camera_head(std::chrono::milliseconds move_limit);

    // Takes the place of the movement under way. Speed 1 to 64; a stop takes no notice of it.
    void move(head_command command, std::uint32_t speed, clock::time_point now);
    // At full speed until it is there, without a time limit.
    void go_to(const head_view& target, clock::time_point now);
    head_view look(clock::time_point now) const;

private:
    head_view at(clock::time_point now) const;
    void begin(const head_view& speed, const head_view& target, std::chrono::duration<double> limit,
               clock::time_point now);

    const std::chrono::duration<double> move_limit_;
    mutable std::mutex mutex_;
    head_view from_;
    head_view speed_ = {0, 0, 0}; // per second, never negative
    head_view target_;            // where it ends
    std::chrono::duration<double> limit_{0};
    clock::time_point began_;
};

} // namespace zucam

#endif
