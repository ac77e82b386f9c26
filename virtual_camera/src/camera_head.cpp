// Every movement is one towards a target at a speed per axis: a command's target is the end of the
// scene in its direction, a preset's is the preset. A command's movement runs no longer than the
// limit; nothing has to happen for it to end, since the view is computed from the time alone.
#include "camera_head.h"

#include <algorithm>

namespace zucam
{

namespace
{

// Full speed takes two seconds from end to end.
constexpr double turn_per_speed = 16;
constexpr double zoom_per_speed = 24;

struct direction {
    int pan;
    int tilt;
    int zoom;
};

direction direction_of(head_command command)
{
    switch (command) {
    case head_command::up:
        return {0, 1, 0};
    case head_command::down:
        return {0, -1, 0};
    case head_command::left:
        return {-1, 0, 0};
    case head_command::right:
        return {1, 0, 0};
    case head_command::left_up:
        return {-1, 1, 0};
    case head_command::right_up:
        return {1, 1, 0};
    case head_command::left_down:
        return {-1, -1, 0};
    case head_command::right_down:
        return {1, -1, 0};
    case head_command::zoom_in:
        return {0, 0, 1};
    case head_command::zoom_out:
        return {0, 0, -1};
    case head_command::stop:
        break;
    }
    return {0, 0, 0};
}

double end_in(int sign, double here, double lowest, double highest)
{
    if (sign == 0) {
        return here;
    }
    return sign < 0 ? lowest : highest;
}

double towards(double from, double target, double way)
{
    return from < target ? std::min(from + way, target) : std::max(from - way, target);
}

} // namespace

camera_head::camera_head(std::chrono::milliseconds move_limit) : move_limit_(move_limit)
{
}

void camera_head::move(head_command command, std::uint32_t speed, clock::time_point now)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const direction to = direction_of(command);
    const head_view here = at(now);
    const head_view target = {end_in(to.pan, here.pan, lowest_view.pan, highest_view.pan),
                              end_in(to.tilt, here.tilt, lowest_view.tilt, highest_view.tilt),
                              end_in(to.zoom, here.zoom, lowest_view.zoom, highest_view.zoom)};
    begin({turn_per_speed * speed, turn_per_speed * speed, zoom_per_speed * speed}, target,
          move_limit_, now);
}

void camera_head::go_to(const head_view& target, clock::time_point now)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    begin({turn_per_speed * fastest_speed, turn_per_speed * fastest_speed,
           zoom_per_speed * fastest_speed},
          target, std::chrono::hours(1), now);
}

head_view camera_head::look(clock::time_point now) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return at(now);
}

head_view camera_head::at(clock::time_point now) const
{
    const std::chrono::duration<double> since = now - began_;
    const double seconds = std::clamp(since, std::chrono::duration<double>(0), limit_).count();
    return {towards(from_.pan, target_.pan, speed_.pan * seconds),
            towards(from_.tilt, target_.tilt, speed_.tilt * seconds),
            towards(from_.zoom, target_.zoom, speed_.zoom * seconds)};
}

void camera_head::begin(const head_view& speed, const head_view& target,
                        std::chrono::duration<double> limit, clock::time_point now)
{
    from_ = at(now);
    speed_ = speed;
    target_ = target;
    limit_ = limit;
    began_ = now;
}

} // namespace zucam
