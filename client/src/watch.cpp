// The three facts and their events. See watch.hpp.
#include "watch.hpp"

#include <algorithm>
#include <utility>

#include "times.hpp"

namespace zu::detail
{

namespace
{

// A handler that never returns must not fill the memory: beyond this, what comes without end while
// nothing changes is not told.
constexpr std::size_t events_before_some_go = 1000;

bool comes_without_end(EventKind kind)
{
    return kind == EventKind::heartbeat || kind == EventKind::frames_dropped ||
           kind == EventKind::key_frame_asked_for;
}

constexpr std::chrono::seconds between_drops{1};

} // namespace

Watch::Watch(Clock::duration stalled_after, Clock::duration peer_silent_after,
             bool events_are_taken)
    : silent_after(peer_silent_after), keeps_events(events_are_taken), media_watch(stalled_after),
      login_time(Clock::now())
{
}

// ---- what happens ------------------------------------------------------------------------------

// A frame's time is taken before the guard is, and events are in the order of their times.
void Watch::push(EventKind kind, Clock::time_point now) const
{
    poked = true; // the next change may be due at another time
    woken.notify_all();
    if (!keeps_events) {
        return;
    }
    if (events.size() < events_before_some_go || !comes_without_end(kind)) {
        told_until = std::max(told_until, now);
        events.push_back({kind, told_until});
        told.notify_all();
    }
}

void Watch::logged_in()
{
    const std::lock_guard<std::mutex> lock(guard);
    login_time = Clock::now();
    link_fact = {LinkState::up, login_time};
}

bool Watch::link_is(bool up)
{
    const std::lock_guard<std::mutex> lock(guard);
    const LinkState state = up ? LinkState::up : LinkState::down;
    if (state == link_fact.state) {
        return false;
    }
    link_fact = {state, Clock::now()};
    reconnections += up ? 1 : 0;
    push(up ? EventKind::link_up : EventKind::link_down, link_fact.since);
    return true;
}

void Watch::heartbeat()
{
    const std::lock_guard<std::mutex> lock(guard);
    const auto now = Clock::now();
    ++heartbeats;
    push(EventKind::heartbeat, now);
    hear(now);
}

void Watch::answered()
{
    const std::lock_guard<std::mutex> lock(guard);
    hear(Clock::now());
}

void Watch::hear(Clock::time_point now)
{
    pass_time(now);
    last_answer = now;
    silence_told = false;
    if (!peer_alive) {
        peer_alive = true;
        push(EventKind::peer_alive, now);
    }
}

bool Watch::stream_begins()
{
    const std::lock_guard<std::mutex> lock(guard);
    const bool news = media_watch.begin(Clock::now());
    poked = true;
    woken.notify_all();
    return news;
}

void Watch::stream_ends()
{
    const std::lock_guard<std::mutex> lock(guard);
    media_watch.end(Clock::now());
}

void Watch::frame(const FrameView& view)
{
    const std::lock_guard<std::mutex> lock(guard);
    if (const auto header = view.description()) {
        media_watch.frame_rate(header->frame_rate);
    }
    if (view.kind != FrameKind::video && view.kind != FrameKind::audio) {
        return;
    }
    pass_time(view.arrived);
    if (const auto event = media_watch.frame(view.arrived, view.kind == FrameKind::video)) {
        push(*event, view.arrived);
    }
}

void Watch::tell(EventKind kind)
{
    const std::lock_guard<std::mutex> lock(guard);
    push(kind, Clock::now());
}

void Watch::drops_begin()
{
    const std::lock_guard<std::mutex> lock(guard);
    const auto now = Clock::now();
    if (drops_told == Clock::time_point() || now - drops_told >= between_drops) {
        drops_told = now;
        push(EventKind::frames_dropped, now);
    }
}

// ---- facts -------------------------------------------------------------------------------------

void Watch::pass_time(Clock::time_point now) const
{
    if (const auto event = media_watch.look(now)) {
        push(*event, now);
    }
    if (!silence_told && now - last_answer.value_or(login_time) >= silent_after) {
        silence_told = true;
        peer_alive = false;
        push(EventKind::peer_silent, now);
    }
}

Clock::time_point Watch::due() const
{
    const auto silent_at = silence_told ? never : last_answer.value_or(login_time) + silent_after;
    return std::min(media_watch.due(), silent_at);
}

Link Watch::link() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return link_fact;
}

Peer Watch::peer() const
{
    const std::lock_guard<std::mutex> lock(guard);
    const auto now = Clock::now();
    pass_time(now);
    Peer out;
    out.alive = peer_alive;
    if (last_answer) {
        out.silence = now - *last_answer;
    }
    return out;
}

Media Watch::media() const
{
    const std::lock_guard<std::mutex> lock(guard);
    const auto now = Clock::now();
    pass_time(now);
    return media_watch.fact(now);
}

void Watch::count(Stats& stats) const
{
    const std::lock_guard<std::mutex> lock(guard);
    pass_time(Clock::now());
    stats.gaps = media_watch.gaps();
    stats.reconnections = reconnections;
    stats.heartbeats = heartbeats;
}

// ---- the camera's threads ----------------------------------------------------------------------

void Watch::wait(Clock::time_point until)
{
    std::unique_lock<std::mutex> lock(guard);
    woken.wait_until(lock, std::min(until, due()), [this] { return poked || ended; });
    poked = false;
    pass_time(Clock::now());
}

std::deque<Event> Watch::take_events()
{
    const std::lock_guard<std::mutex> lock(guard);
    return std::exchange(events, {});
}

std::deque<Event> Watch::wait_for_events()
{
    std::unique_lock<std::mutex> lock(guard);
    told.wait(lock, [this] { return ended || !events.empty(); });
    return ended ? std::deque<Event>() : std::exchange(events, {});
}

void Watch::end()
{
    const std::lock_guard<std::mutex> lock(guard);
    ended = true;
    woken.notify_all();
    told.notify_all();
}

void Watch::poke()
{
    const std::lock_guard<std::mutex> lock(guard);
    poked = true;
    woken.notify_all();
}

} // namespace zu::detail
