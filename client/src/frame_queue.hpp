// Frames on their way to next_frame, no more than a bound allows, with a policy for what does not
// fit.
//
// put runs on the receiver thread, one call at a time, and blocks with WhenFull::block alone; next
// runs on any thread, on many at once. One lock guards everything; the bytes of a frame are copied
// outside of it. Every frame that is put in is taken or counted as dropped, once.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "zu/frame.hpp"
#include "zu/stats.hpp"

namespace zu::detail
{

// Whether a decoder may begin with a frame. Video of a codec that is not known counts: none of it
// would ever be a key frame.
inline bool can_begin_with(const FrameView& view)
{
    return view.kind == FrameKind::video && (view.key || view.codec == Codec::unknown);
}

class FrameQueue
{
public:
    explicit FrameQueue(const FrameQueueOptions& options);

    struct Outcome {
        bool kept = false;
        bool run_begins = false; // of drops for lack of room
        bool needs_key = false;  // a decoder of what is taken from here needs a key frame now
    };
    Outcome put(const FrameView& view);
    // The link is lost: what comes next follows nothing that was before.
    void link_is_lost();

    // Waits until `until`. Nothing when it has passed, or when the queue has ended.
    std::optional<Frame> next(Clock::time_point until);

    // No frame is given out any more; whoever waits, waits no longer.
    void end();

    void count(Stats& stats) const;

private:
    enum class Waiting { for_nothing, for_key_after_overflow, for_key_after_reconnection };
    enum class Verdict { keep, keep_for_later, drop };

    Verdict judge(const FrameView& view, Outcome& outcome);
    Verdict judge_while_waiting(const FrameView& view, Outcome& outcome);
    Verdict judge_by_room(const FrameView& view, Outcome& outcome);
    void lose(const FrameView& view, Outcome& outcome);
    Verdict overflow(const FrameView& view, Outcome& outcome);
    void make_room_for_newest(const FrameView& view, Outcome& outcome);
    void insert(Frame frame);
    void set_aside_latest(Frame frame, std::uint64_t& replaced);
    bool has_room() const;

    const FrameQueueOptions options;

    mutable std::mutex guard;
    std::condition_variable filled;
    std::condition_variable emptied;
    std::deque<Frame> frames;
    // Parameter sets and system headers that came while frames were dropped, the last of each: what
    // comes next goes with them.
    std::deque<Frame> set_aside;
    Waiting waiting = Waiting::for_nothing;
    bool in_run = false;
    bool ended = false;
    Stats counted; // taken and dropped
};

} // namespace zu::detail
