// The bounded queue of frames. See frame_queue.hpp.
//
// With WhenFull::drop_to_key a video frame that does not fit begins a run of drops, which ends with
// the next key frame that fits. Meanwhile
//   - other video is dropped, since no decoder could use it;
//   - parameter sets and system headers are set aside, since the key frame needs them;
//   - sound and the like is dropped until the queue has been emptied, so that the key frame finds
//     room, and kept from then on, so that sound goes on when no video comes any more.
// A lost link begins the same wait without a lack of room, so it costs nothing but video.
//
// With WhenFull::newest_only parameter sets and system headers are set aside too when the rest is
// given up, since no later frame could be decoded without them. What is set aside, one of each kind
// at most, comes on top of the bound.
#include "frame_queue.hpp"

#include <algorithm>
#include <new>

namespace zu::detail
{

namespace
{

bool prepares(const FrameView& view)
{
    return view.kind == FrameKind::parameter_sets || view.kind == FrameKind::system_header;
}

} // namespace

FrameQueue::FrameQueue(const FrameQueueOptions& its) : options(its)
{
}

FrameQueue::Outcome FrameQueue::put(const FrameView& view)
{
    Outcome outcome;
    std::unique_lock<std::mutex> lock(guard);
    if (options.when_full == WhenFull::block) {
        emptied.wait(lock, [this] { return ended || has_room(); });
    }
    const Verdict verdict = judge(view, outcome);
    if (verdict == Verdict::drop) {
        return outcome;
    }
    lock.unlock(); // nobody else puts frames in, so there is still room afterwards
    std::optional<Frame> frame;
    try {
        frame.emplace(view);
    } catch (const std::bad_alloc&) { // as if there were no room
    }
    lock.lock();
    if (ended) {
        ++counted.dropped_at_end;
    } else if (!frame) {
        lose(view, outcome);
        ++counted.dropped_queue_full;
    } else if (verdict == Verdict::keep_for_later) {
        set_aside_latest(std::move(*frame), counted.dropped_awaiting_key);
    } else {
        insert(std::move(*frame));
        outcome.kept = true;
    }
    return outcome;
}

bool FrameQueue::has_room() const
{
    return frames.empty() || frames.size() + set_aside.size() < options.frames;
}

FrameQueue::Verdict FrameQueue::judge(const FrameView& view, Outcome& outcome)
{
    if (ended) {
        ++counted.dropped_at_end;
        return Verdict::drop;
    }
    if (options.when_full == WhenFull::newest_only && !has_room()) {
        make_room_for_newest(view, outcome);
        return Verdict::keep;
    }
    return waiting == Waiting::for_nothing ? judge_by_room(view, outcome)
                                           : judge_while_waiting(view, outcome);
}

FrameQueue::Verdict FrameQueue::judge_by_room(const FrameView& view, Outcome& outcome)
{
    if (has_room()) {
        in_run = in_run && options.when_full == WhenFull::newest_only && !frames.empty();
        return Verdict::keep;
    }
    return overflow(view, outcome);
}

FrameQueue::Verdict FrameQueue::judge_while_waiting(const FrameView& view, Outcome& outcome)
{
    if (can_begin_with(view)) {
        if (!has_room()) {
            return overflow(view, outcome);
        }
        waiting = Waiting::for_nothing;
        in_run = false;
        return Verdict::keep;
    }
    const bool draining = waiting == Waiting::for_key_after_overflow && !frames.empty();
    if (view.kind == FrameKind::video || (draining && !prepares(view))) {
        outcome.needs_key = true;
        ++counted.dropped_awaiting_key;
        return Verdict::drop;
    }
    return draining ? Verdict::keep_for_later : judge_by_room(view, outcome);
}

// There is no room for a frame: without it no decoder goes on before the next key frame.
void FrameQueue::lose(const FrameView& view, Outcome& outcome)
{
    outcome.run_begins = outcome.run_begins || !in_run;
    in_run = true;
    if (view.kind == FrameKind::video || prepares(view)) {
        waiting = Waiting::for_key_after_overflow;
        outcome.needs_key = true;
    }
}

FrameQueue::Verdict FrameQueue::overflow(const FrameView& view, Outcome& outcome)
{
    lose(view, outcome);
    if (prepares(view)) {
        return Verdict::keep_for_later;
    }
    ++counted.dropped_queue_full;
    return Verdict::drop;
}

void FrameQueue::make_room_for_newest(const FrameView& view, Outcome& outcome)
{
    outcome.run_begins = !in_run;
    in_run = true;
    const auto is_video = [](const Frame& frame) { return frame.kind == FrameKind::video; };
    outcome.needs_key =
        !can_begin_with(view) && std::any_of(frames.begin(), frames.end(), is_video);
    std::deque<Frame> all;
    all.swap(frames);
    for (Frame& frame : all) {
        if (prepares(frame.view())) {
            set_aside_latest(std::move(frame), counted.dropped_superseded);
        } else {
            ++counted.dropped_superseded;
        }
    }
}

void FrameQueue::insert(Frame frame)
{
    for (Frame& earlier : set_aside) {
        if (options.when_full == WhenFull::newest_only && earlier.kind == frame.kind) {
            ++counted.dropped_superseded; // by this very frame
        } else {
            frames.push_back(std::move(earlier));
        }
    }
    set_aside.clear();
    frames.push_back(std::move(frame));
    filled.notify_all();
}

void FrameQueue::set_aside_latest(Frame frame, std::uint64_t& replaced)
{
    const auto same = std::find_if(set_aside.begin(), set_aside.end(), [&](const Frame& earlier) {
        return earlier.kind == frame.kind;
    });
    if (same != set_aside.end()) {
        set_aside.erase(same);
        ++replaced;
    }
    set_aside.push_back(std::move(frame));
}

void FrameQueue::link_is_lost()
{
    const std::lock_guard<std::mutex> lock(guard);
    if (options.when_full == WhenFull::drop_to_key && waiting == Waiting::for_nothing) {
        waiting = Waiting::for_key_after_reconnection;
    }
}

std::optional<Frame> FrameQueue::next(Clock::time_point until)
{
    std::unique_lock<std::mutex> lock(guard);
    filled.wait_until(lock, until, [this] { return ended || !frames.empty(); });
    if (ended || frames.empty()) {
        return {};
    }
    std::optional<Frame> frame(std::move(frames.front()));
    frames.pop_front();
    ++counted.taken;
    emptied.notify_all();
    return frame;
}

void FrameQueue::end()
{
    std::deque<Frame> left; // freed without the lock
    {
        const std::lock_guard<std::mutex> lock(guard);
        ended = true;
        counted.dropped_at_end += frames.size() + set_aside.size();
        left.swap(frames);
        set_aside.clear();
    }
    filled.notify_all();
    emptied.notify_all();
}

void FrameQueue::count(Stats& stats) const
{
    const std::lock_guard<std::mutex> lock(guard);
    stats.taken = counted.taken;
    stats.dropped_queue_full = counted.dropped_queue_full;
    stats.dropped_awaiting_key = counted.dropped_awaiting_key;
    stats.dropped_superseded = counted.dropped_superseded;
    stats.dropped_at_end = counted.dropped_at_end;
}

} // namespace zu::detail
