// Whether frames come as they should. See media_watch.hpp, which tells the rule.
#include "media_watch.hpp"

#include <algorithm>
#include <numeric>

#include "times.hpp"

namespace zu::detail
{

namespace
{

using std::chrono::seconds;

constexpr unsigned believable_rate = 1000; // frames a second

} // namespace

MediaWatch::MediaWatch(Clock::duration stalled)
    : stalled_after(stalled), quarter(std::max<Clock::duration>(stalled, seconds(1)) / quarters)
{
}

void MediaWatch::enter(MediaState next, Clock::time_point now)
{
    state = next;
    since = now;
}

bool MediaWatch::begin(Clock::time_point now)
{
    if (state != MediaState::off) {
        return false; // one stream after another: what flows shall go on
    }
    enter(MediaState::stalled, now);
    quiet_since = now;
    gap_is_told = false;
    video_seen = false;
    told_rate = 0;
    measured = 0;
    return true;
}

void MediaWatch::end(Clock::time_point now)
{
    if (state != MediaState::off) {
        enter(MediaState::off, now);
    }
}

void MediaWatch::frame_rate(unsigned rate)
{
    told_rate = rate <= believable_rate ? rate : 0;
}

void MediaWatch::open_window(Clock::time_point now)
{
    closed = 0;
    in_this_quarter = 0;
    quarter_is_empty = true;
    quarter_ends = now + quarter;
}

std::optional<EventKind> MediaWatch::frame(Clock::time_point now, bool video)
{
    last_frame = now;
    if (state == MediaState::off) {
        return {};
    }
    const bool resumes = state == MediaState::stalled;
    quiet_since = now;
    video_seen = video_seen || video;
    if (resumes) {
        enter(MediaState::flowing, now);
        open_window(now);
    }
    in_this_quarter += video ? 1 : 0;
    quarter_is_empty = false;
    return resumes ? std::optional(EventKind::media_flowing) : std::nullopt;
}

std::optional<EventKind> MediaWatch::look(Clock::time_point now)
{
    const MediaState before = state;
    if (state == MediaState::off) {
        return {};
    }
    if (now - quiet_since >= stalled_after) {
        if (state == MediaState::stalled && gap_is_told) {
            return {};
        }
        if (state != MediaState::stalled) {
            enter(MediaState::stalled, now);
        }
        gap_is_told = true;
        ++gap_count;
        return EventKind::media_stalled;
    }
    while (state != MediaState::stalled && now >= quarter_ends) {
        close_quarter(now);
    }
    if (state == before) {
        return {};
    }
    return state == MediaState::flowing ? EventKind::media_flowing : EventKind::media_trickling;
}

void MediaWatch::close_quarter(Clock::time_point now)
{
    closed_quarters[closed % quarters] = in_this_quarter;
    ++closed;
    if (closed >= quarters && video_seen && !quarter_is_empty) {
        judge(std::accumulate(closed_quarters.begin(), closed_quarters.end(), std::uint64_t{0}),
              now);
    }
    in_this_quarter = 0;
    quarter_is_empty = true;
    quarter_ends += quarter;
}

std::uint64_t MediaWatch::expected() const
{
    if (told_rate == 0) {
        return measured;
    }
    const auto window = std::chrono::duration_cast<std::chrono::milliseconds>(quarter * quarters);
    return told_rate * static_cast<std::uint64_t>(window.count()) / 1000;
}

void MediaWatch::judge(std::uint64_t came, Clock::time_point now)
{
    if (state == MediaState::flowing && 2 * came < expected()) {
        enter(MediaState::trickling, now);
    } else if (state == MediaState::trickling && 4 * came >= 3 * expected()) {
        enter(MediaState::flowing, now);
    }
    if (state == MediaState::flowing) {
        measured = measured == 0 ? came : (3 * measured + came) / 4;
    }
}

Clock::time_point MediaWatch::due() const
{
    switch (state) {
    case MediaState::off:
        return never;
    case MediaState::stalled:
        return gap_is_told ? never : quiet_since + stalled_after;
    case MediaState::flowing:
    case MediaState::trickling:
        break;
    }
    return std::min(quiet_since + stalled_after, quarter_ends);
}

Media MediaWatch::fact(Clock::time_point now) const
{
    Media out;
    out.state = state;
    out.since = since;
    if (last_frame) {
        out.frame_age = now - *last_frame;
    }
    return out;
}

} // namespace zu::detail
