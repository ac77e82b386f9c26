// The three facts about one camera, the events that tell of their changes, and what its two threads
// sleep on.
//
// Any thread tells it what has happened and asks it for facts; the camera's own thread sleeps in
// wait and lets time pass over the facts; its event thread takes the events. One lock guards
// everything and is never held across a call of anybody else's. Facts are looked at as of the
// moment they are asked for.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "media_watch.hpp"
#include "zu/stats.hpp"

namespace zu::detail
{

class Watch
{
public:
    // Events are kept for those who take them only when somebody does.
    Watch(Clock::duration stalled_after, Clock::duration peer_silent_after,
          bool events_are_taken = true);

    // ---- what happens ----

    void logged_in();      // the link is up
    bool link_is(bool up); // whether that is news
    void heartbeat();
    void answered();      // a request: a sign of life too
    bool stream_begins(); // whether there was none before
    void stream_ends();
    void frame(const FrameView& view);
    void tell(EventKind kind);
    void drops_begin(); // told once a second at most

    // ---- facts ----

    Link link() const;
    Peer peer() const;
    Media media() const;
    void count(Stats& stats) const;

    // ---- for the camera's threads ----

    // Sleeps until `until`, until something has happened, or until time changes a fact. Time has
    // passed over the facts when it returns.
    void wait(Clock::time_point until);
    void poke(); // ends a wait
    // Sleeps until there are events. None when the end has come.
    std::deque<Event> wait_for_events();
    std::deque<Event> take_events(); // those that are there
    void end();                      // of all waits

private:
    void hear(Clock::time_point now);
    void pass_time(Clock::time_point now) const;
    void push(EventKind kind, Clock::time_point now) const;
    Clock::time_point due() const;

    const Clock::duration silent_after;
    const bool keeps_events;

    mutable std::mutex guard;
    // Readers let time pass too, hence mutable.
    mutable std::condition_variable woken;
    mutable std::condition_variable told;
    mutable bool poked = false;
    mutable std::deque<Event> events;
    mutable Clock::time_point told_until; // the time of the last event
    mutable MediaWatch media_watch;
    mutable bool peer_alive = false;   // as told
    mutable bool silence_told = false; // since the last answer

    bool ended = false;
    Link link_fact;
    Clock::time_point login_time;
    std::optional<Clock::time_point> last_answer;
    Clock::time_point drops_told;
    std::uint64_t reconnections = 0;
    std::uint64_t heartbeats = 0;
};

} // namespace zu::detail
