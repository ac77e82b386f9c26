// Where requests of one camera are handed in: a queue, and threads that make the calls.
//
// A caller waits at the desk until its deadline, and not longer; the call itself goes on. So a call
// works on copies of its own, and what it leaves is looked at only by a caller that has been told
// that it has ended. A call that has not begun when its deadline passes never begins.
//
// What the layer asks for by itself, and the last request of all, need not wait for callers: of
// callers' calls no more than a number are made at once, of the layer's own as many as there are,
// so that a device which leaves four questions open is told to stop moving all the same. There is
// one of each kind at most, but a stop for each second in which none is answered.
//
// run and post come from any thread. The threads are made when first needed and stay until close.
// One lock guards everything and is not held while a call is made.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "zu/frame.hpp"
#include "zu/stats.hpp"

namespace zu::detail
{

class RequestDesk
{
public:
    // What a call came to. With `cancelled` it was not made in the end, and does not count.
    using Call = std::function<std::error_code()>;
    static std::error_code cancelled();

    explicit RequestDesk(unsigned most_at_once); // of callers
    ~RequestDesk();                              // after close
    RequestDesk(const RequestDesk&) = delete;
    RequestDesk& operator=(const RequestDesk&) = delete;

    // Hands a call in and waits for what it comes to.
    std::error_code run(Call call, Clock::time_point deadline);
    // Hands a call of the layer's own in and does not wait. False when nobody can make it.
    bool post(Call call);
    // A request that was refused before it came to the desk.
    void note_failure();

    // The end, in this order. From refuse on callers are sent away, also those that wait already;
    // `run_last` still works, and begins in any case, however late it is.
    void refuse();
    std::error_code run_last(Call call, Clock::time_point deadline);
    void close(); // waits for the calls that are being made; afterwards there are no threads

    void count(Stats& stats) const;

private:
    enum class Stage { waiting, under_way, over };
    struct Ticket {
        Call call;
        Clock::time_point deadline = Clock::time_point::max();
        Stage stage = Stage::waiting;
        bool abandoned = false; // nobody waits for it any more, its outcome is settled
        bool for_caller = false;
        bool last = false;          // begins even when its caller has gone
        bool behind_others = false; // no thread could be had for it when it was handed in
        std::error_code outcome;
        std::condition_variable ended;
    };
    using Tickets = std::deque<std::shared_ptr<Ticket>>;

    std::error_code wait_for(const std::shared_ptr<Ticket>& ticket,
                             std::unique_lock<std::mutex>& lock, Clock::time_point deadline);
    std::size_t to_begin() const;
    bool have_thread();
    std::shared_ptr<Ticket> next();
    void give_up(const std::shared_ptr<Ticket>& ticket, std::error_code why);
    static std::error_code why_late(const Ticket& ticket);
    void work();
    void make(const std::shared_ptr<Ticket>& ticket, std::unique_lock<std::mutex>& lock);
    void settle(std::error_code outcome);
    void note_round_trip(Clock::duration took);

    const unsigned most;

    mutable std::mutex guard;
    std::condition_variable work_to_do;
    Tickets waiting;     // callers'
    Tickets waiting_own; // the layer's own
    Tickets under_way;
    unsigned callers_served = 0; // of those under way
    std::vector<std::thread> threads;
    unsigned free_threads = 0;
    bool refusing = false;
    bool closing = false;
    Stats counted; // requests and round trips
};

} // namespace zu::detail
