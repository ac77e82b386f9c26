// What the layer asks a device for by itself: key frames, that a movement ends, that a stream that
// was stopped stays so.
//
// Here is only decided what is wanted and when. The camera's own thread hands in what is due, the
// threads of the request desk make the calls and say what came of them. One lock guards everything
// and is held for a look at a few words. Any thread.
#pragma once

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "times.hpp"

namespace zu::detail
{

enum class Chore { key_frame, stop_moving, stop_stream };

struct Due {
    Chore chore;
    std::uint64_t movement = 0; // that a stop is for
};

// One thing that is asked for until it has been had, once a second at most.
class Errand
{
public:
    void want(Clock::time_point not_before)
    {
        due = wanted ? due : std::max(due, not_before);
        wanted = true;
    }
    void want_at(Clock::time_point exactly)
    {
        wanted = true;
        due = exactly;
    }
    void want_no_more()
    {
        wanted = false;
    }
    bool is_wanted() const
    {
        return wanted;
    }
    Clock::time_point next() const
    {
        return wanted && !under_way ? due : never;
    }
    // The next one waits for this to be over.
    void hand_in(Clock::time_point now)
    {
        under_way = true;
        begin(now);
    }
    void begin(Clock::time_point now)
    {
        due = now + std::chrono::seconds(1);
    }
    void over()
    {
        under_way = false;
    }

private:
    bool wanted = false;
    bool under_way = false;
    Clock::time_point due;
};

class Upkeep
{
public:
    // ---- key frames ----

    void want_key_frame(Clock::time_point not_before);
    void key_frame_came();

    // ---- the stream ----

    // A start, from begin to end of its call. Several may be under way at once: there is no stream
    // only when all of them were refused and none was there before. Whether that is so.
    void stream_begins();
    bool start_is_over(bool refused);
    // The C library starts at each reconnection what was ever started, several times when a device
    // is slow to answer. What is stopped before or meanwhile is stopped anew whenever it is seen to
    // flow.
    void stream_ends();
    bool stream_is_wanted() const;
    void link_is_lost();
    bool frame_came(); // whether that made something due

    // ---- movements ----

    // A movement, that is the call that begins it: handed in until it is certain that it is not
    // made any more, and in between from begin to end of the call.
    void move_is_handed_in();
    void move_is_gone();
    void end_moves(Clock::time_point until); // waits until all are gone; then none begins
    bool move_begins(Clock::time_point stop_at);
    void move_is_over();
    bool is_moving() const;
    // Which movement a stop that begins now is for, and that the device has taken it: whether that
    // ended the latest movement.
    std::uint64_t stop_begins() const;
    bool stop_is_taken(std::uint64_t movement);

    // ---- for those who do it ----

    Clock::time_point next() const;
    // The next chore that is due, which counts as handed in from here on.
    std::optional<Due> take_due(Clock::time_point now);
    // Right before its call: whether it is still wanted.
    bool begins(const Due& due, Clock::time_point now);
    // Its call is over or was never made. Whether it has done what it was for.
    bool is_over(const Due& due, bool taken);

private:
    Errand& errand(Chore chore);
    void end_stream();
    bool end_movement(std::uint64_t which);

    mutable std::mutex guard;
    std::array<Errand, 3> errands;
    bool stream_wanted = false;
    bool stream_ever_began = false;
    bool stream_accepted = false; // a start since the last end was not refused
    int starts_under_way = 0;
    bool stream_comes_back = false; // the C library has started it since, or does so yet
    std::uint64_t movement = 0;
    bool moves_ended = false;
    int moves_handed_in = 0;
    int moves_under_way = 0;
    std::condition_variable moves_are_gone;
};

} // namespace zu::detail
