// What the layer asks for by itself. See upkeep.hpp.
#include "upkeep.hpp"

namespace zu::detail
{

using lock = std::lock_guard<std::mutex>;

Errand& Upkeep::errand(Chore chore)
{
    return errands[static_cast<std::size_t>(chore)];
}

// ---- key frames --------------------------------------------------------------------------------

void Upkeep::want_key_frame(Clock::time_point not_before)
{
    const lock held(guard);
    if (stream_wanted || !stream_ever_began) { // what still comes of a stopped one is of no use
        errand(Chore::key_frame).want(not_before);
    }
}

void Upkeep::key_frame_came()
{
    const lock held(guard);
    errand(Chore::key_frame).want_no_more();
}

// ---- the stream --------------------------------------------------------------------------------

void Upkeep::stream_begins()
{
    const lock held(guard);
    stream_wanted = true;
    stream_ever_began = true;
    stream_comes_back = false;
    ++starts_under_way;
    errand(Chore::stop_stream).want_no_more();
}

bool Upkeep::start_is_over(bool refused)
{
    const lock held(guard);
    --starts_under_way;
    stream_accepted = stream_accepted || !refused;
    if (stream_accepted || starts_under_way > 0 || !stream_wanted) {
        return false;
    }
    end_stream();
    return true;
}

void Upkeep::stream_ends()
{
    const lock held(guard);
    end_stream();
}

void Upkeep::end_stream()
{
    stream_wanted = false;
    stream_accepted = false;
    errand(Chore::key_frame).want_no_more();
}

bool Upkeep::stream_is_wanted() const
{
    const lock held(guard);
    return stream_wanted;
}

void Upkeep::link_is_lost()
{
    const lock held(guard);
    stream_comes_back = stream_ever_began;
}

bool Upkeep::frame_came()
{
    const lock held(guard);
    if (stream_wanted || !stream_comes_back || errand(Chore::stop_stream).is_wanted()) {
        return false;
    }
    errand(Chore::stop_stream).want(Clock::now());
    return true;
}

// ---- movements ---------------------------------------------------------------------------------

void Upkeep::move_is_handed_in()
{
    const lock held(guard);
    ++moves_handed_in;
}

void Upkeep::move_is_gone()
{
    const lock held(guard);
    --moves_handed_in;
    moves_are_gone.notify_all();
}

void Upkeep::end_moves(Clock::time_point until)
{
    std::unique_lock<std::mutex> held(guard);
    moves_are_gone.wait_until(held, until, [this] { return moves_handed_in == 0; });
    moves_ended = true;
}

bool Upkeep::move_begins(Clock::time_point stop_at)
{
    const lock held(guard);
    if (moves_ended) {
        return false;
    }
    ++movement;
    ++moves_under_way;
    errand(Chore::stop_moving).want_at(stop_at);
    return true;
}

void Upkeep::move_is_over()
{
    const lock held(guard);
    --moves_under_way;
}

bool Upkeep::is_moving() const
{
    const lock held(guard);
    return errands[static_cast<std::size_t>(Chore::stop_moving)].is_wanted();
}

std::uint64_t Upkeep::stop_begins() const
{
    const lock held(guard);
    return movement;
}

bool Upkeep::stop_is_taken(std::uint64_t which)
{
    const lock held(guard);
    return end_movement(which);
}

// A stop may have overtaken a move whose call is not over, so it ends none then; the next one will.
bool Upkeep::end_movement(std::uint64_t which)
{
    Errand& stop = errand(Chore::stop_moving);
    if (which != movement || moves_under_way > 0 || !stop.is_wanted()) {
        return false;
    }
    stop.want_no_more();
    return true;
}

// ---- for those who do it -----------------------------------------------------------------------

Clock::time_point Upkeep::next() const
{
    const lock held(guard);
    auto soonest = never;
    for (const Errand& each : errands) {
        soonest = std::min(soonest, each.next());
    }
    return soonest;
}

// A stop does not wait for the answer to the one before, which may never come, nor keep the next
// movement's waiting.
std::optional<Due> Upkeep::take_due(Clock::time_point now)
{
    const lock held(guard);
    if (now >= errand(Chore::stop_moving).next()) {
        errand(Chore::stop_moving).begin(now);
        return Due{Chore::stop_moving, movement};
    }
    for (const Chore chore : {Chore::stop_stream, Chore::key_frame}) {
        if (now >= errand(chore).next()) {
            errand(chore).hand_in(now);
            return Due{chore};
        }
    }
    return {};
}

bool Upkeep::begins(const Due& due, Clock::time_point now)
{
    const lock held(guard);
    Errand& its = errand(due.chore);
    if (!its.is_wanted() || (due.chore == Chore::stop_moving && due.movement != movement)) {
        return false;
    }
    its.begin(now);
    return true;
}

bool Upkeep::is_over(const Due& due, bool taken)
{
    const lock held(guard);
    if (due.chore == Chore::stop_moving) {
        return taken && end_movement(due.movement);
    }
    errand(due.chore).over();
    if (due.chore == Chore::stop_stream && taken) {
        errand(due.chore).want_no_more();
    }
    return taken; // a key frame is wanted until one has come
}

} // namespace zu::detail
