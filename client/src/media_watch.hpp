// Whether frames come as they should: the third fact about a camera, as a machine without a clock.
//
// Its owner tells it what happens and when, asks what has become due, and guards it.
//
// The rule: media is stalled when no frame has come for `stalled_after`. It trickles when, of the
// video frames that a window of max(`stalled_after`, one second) should bring, fewer than half have
// come, and flows again from three quarters on. What the window should bring is told by the frame
// rate of the system header or, without one, by what the windows before have brought. The window is
// made of four whole quarters, so it is looked at four times in its length. A stream that has
// stopped altogether does not trickle first: that takes a frame in the last quarter.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "zu/facts.hpp"

namespace zu::detail
{

class MediaWatch
{
public:
    explicit MediaWatch(Clock::duration stalled_after);

    bool begin(Clock::time_point now); // a stream has been asked for; false: as one had before
    void end(Clock::time_point now);   // and is to come no more
    void frame_rate(unsigned rate);    // as a system header tells it

    // A video or audio frame has come. Look first, so that it does not hide the gap that it ends.
    std::optional<EventKind> frame(Clock::time_point now, bool video);
    // What time has brought about since.
    std::optional<EventKind> look(Clock::time_point now);
    Clock::time_point due() const; // when to look again

    Media fact(Clock::time_point now) const;
    std::uint64_t gaps() const
    {
        return gap_count;
    }

private:
    static constexpr unsigned quarters = 4;

    void enter(MediaState next, Clock::time_point now);
    void open_window(Clock::time_point now);
    void close_quarter(Clock::time_point now);
    void judge(std::uint64_t came, Clock::time_point now);
    std::uint64_t expected() const;

    Clock::duration stalled_after;
    Clock::duration quarter; // of a window

    MediaState state = MediaState::off;
    Clock::time_point since;
    std::optional<Clock::time_point> last_frame;
    Clock::time_point quiet_since; // the last frame, or the begin
    bool gap_is_told = false;
    bool video_seen = false;    // since the begin
    unsigned told_rate = 0;     // by a system header, a second
    std::uint64_t measured = 0; // a window
    std::uint64_t gap_count = 0;

    std::array<std::uint64_t, quarters> closed_quarters = {}; // video frames in each
    unsigned closed = 0;                                      // since the window was opened
    std::uint64_t in_this_quarter = 0;
    bool quarter_is_empty = true; // of sound too
    Clock::time_point quarter_ends;
};

} // namespace zu::detail
