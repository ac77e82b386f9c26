// The desk where requests are handed in. See request_desk.hpp.
#include "request_desk.hpp"

#include <algorithm>
#include <pthread.h>

#include "no_signals.hpp"
#include "zu/error.hpp"

namespace zu::detail
{

std::error_code RequestDesk::cancelled()
{
    return std::make_error_code(std::errc::operation_canceled);
}

RequestDesk::RequestDesk(unsigned most_at_once) : most(most_at_once)
{
}

RequestDesk::~RequestDesk()
{
    close();
}

// ---- for callers -------------------------------------------------------------------------------

std::error_code RequestDesk::run(Call call, Clock::time_point deadline)
{
    const auto ticket = std::make_shared<Ticket>();
    ticket->call = std::move(call);
    ticket->deadline = deadline;
    ticket->for_caller = true;
    std::unique_lock<std::mutex> lock(guard);
    if (closing || refusing) {
        return Errc::closed;
    }
    ++counted.requests;
    if (Clock::now() >= deadline) {
        ++counted.requests_failed;
        ++counted.requests_timed_out;
        return Errc::timed_out;
    }
    waiting.push_back(ticket);
    return wait_for(ticket, lock, deadline);
}

std::error_code RequestDesk::run_last(Call call, Clock::time_point deadline)
{
    const auto ticket = std::make_shared<Ticket>();
    ticket->call = std::move(call);
    ticket->last = true;
    std::unique_lock<std::mutex> lock(guard);
    if (closing) {
        return Errc::closed;
    }
    ++counted.requests;
    waiting_own.push_back(ticket);
    return wait_for(ticket, lock, deadline);
}

// The guard is held, but for the wait.
std::error_code RequestDesk::wait_for(const std::shared_ptr<Ticket>& ticket,
                                      std::unique_lock<std::mutex>& lock,
                                      Clock::time_point deadline)
{
    if (!have_thread()) {
        give_up(ticket, Errc::busy);
        return ticket->outcome;
    }
    ticket->behind_others = free_threads < to_begin() || callers_served + waiting.size() > most;
    work_to_do.notify_one();
    const auto over = [&] { return ticket->stage == Stage::over || ticket->abandoned; };
    if (!ticket->ended.wait_until(lock, deadline, over)) {
        give_up(ticket, why_late(*ticket));
    }
    return ticket->outcome;
}

// The deadline has passed. Under the guard, as what follows. What decides is how things stood when
// the ticket was handed in, and not which of two threads has woken first since.
std::error_code RequestDesk::why_late(const Ticket& ticket)
{
    return ticket.stage == Stage::waiting && ticket.behind_others ? Errc::busy : Errc::timed_out;
}

// The caller goes; its call never begins, if it has not begun.
void RequestDesk::give_up(const std::shared_ptr<Ticket>& ticket, std::error_code why)
{
    ticket->abandoned = true;
    ticket->outcome = why;
    settle(why);
    ticket->ended.notify_all();
    if (ticket->for_caller && ticket->stage == Stage::waiting) {
        waiting.erase(std::find(waiting.begin(), waiting.end(), ticket));
    }
}

bool RequestDesk::post(Call call)
{
    const auto ticket = std::make_shared<Ticket>();
    ticket->call = std::move(call);
    const std::lock_guard<std::mutex> lock(guard);
    if (refusing || closing) {
        return false;
    }
    waiting_own.push_back(ticket);
    if (!have_thread()) {
        waiting_own.pop_back();
        return false;
    }
    ++counted.requests;
    work_to_do.notify_one();
    return true;
}

void RequestDesk::note_failure()
{
    const std::lock_guard<std::mutex> lock(guard);
    ++counted.requests;
    ++counted.requests_failed;
}

// ---- threads -----------------------------------------------------------------------------------

// How many of those that wait may begin now.
std::size_t RequestDesk::to_begin() const
{
    return waiting_own.size() + std::min<std::size_t>(waiting.size(), most - callers_served);
}

// Makes another thread when there is more to begin than threads that are free. False when there is
// none at all. Threads of the C library never need the guard, so it may be held meanwhile.
bool RequestDesk::have_thread()
{
    if (free_threads >= to_begin()) {
        return true;
    }
    const NoSignals inherited;
    try {
        threads.reserve(threads.size() + 1);
        threads.emplace_back([this] { work(); });
        ++free_threads;
    } catch (const std::exception&) {
        return !threads.empty();
    }
    return true;
}

void RequestDesk::work()
{
    pthread_setname_np(pthread_self(), "zu_request");
    std::unique_lock<std::mutex> lock(guard);
    for (;;) {
        work_to_do.wait(lock, [this] { return closing || to_begin() > 0; });
        if (const auto ticket = next()) {
            make(ticket, lock);
        } else if (closing) {
            return;
        }
    }
}

// Null when there is nothing to begin: at the end, and when all that waited was too late. Those
// whose callers have not woken up yet are given up on the way.
std::shared_ptr<RequestDesk::Ticket> RequestDesk::next()
{
    while (to_begin() > 0) {
        Tickets& from = waiting_own.empty() ? waiting : waiting_own;
        std::shared_ptr<Ticket> ticket = from.front();
        if (Clock::now() < ticket->deadline) {
            from.pop_front();
            return ticket;
        }
        give_up(ticket, why_late(*ticket));
    }
    return nullptr;
}

void RequestDesk::make(const std::shared_ptr<Ticket>& ticket, std::unique_lock<std::mutex>& lock)
{
    ticket->stage = Stage::under_way;
    under_way.push_back(ticket);
    callers_served += ticket->for_caller ? 1 : 0;
    --free_threads;
    lock.unlock();

    const auto began = Clock::now();
    const std::error_code outcome = ticket->call();
    const auto took = Clock::now() - began;
    ticket->call = nullptr; // with all that it holds

    lock.lock();
    ++free_threads;
    callers_served -= ticket->for_caller ? 1 : 0;
    under_way.erase(std::find(under_way.begin(), under_way.end(), ticket));
    ticket->stage = Stage::over;
    if (!ticket->abandoned) {
        ticket->outcome = outcome;
        settle(outcome);
        if (!outcome || refused(outcome)) {
            note_round_trip(took);
        }
        ticket->ended.notify_all();
    }
}

// ---- the end -----------------------------------------------------------------------------------

void RequestDesk::refuse()
{
    const std::lock_guard<std::mutex> lock(guard);
    refusing = true;
    Tickets all = waiting;
    all.insert(all.end(), under_way.begin(), under_way.end());
    for (const auto& ticket : all) {
        if (ticket->for_caller && !ticket->abandoned) {
            give_up(ticket, Errc::closed);
        }
    }
}

void RequestDesk::close()
{
    {
        const std::lock_guard<std::mutex> lock(guard);
        refusing = true;
        closing = true;
        const auto dropped = std::stable_partition(waiting_own.begin(), waiting_own.end(),
                                                   [](const auto& ticket) { return ticket->last; });
        for (auto each = dropped; each != waiting_own.end(); ++each) { // nobody waits for them
            give_up(*each, Errc::closed);
        }
        waiting_own.erase(dropped, waiting_own.end());
        work_to_do.notify_all();
    }
    for (std::thread& thread : threads) { // no more are made
        thread.join();
    }
    threads.clear();
}

// ---- counts ------------------------------------------------------------------------------------

void RequestDesk::settle(std::error_code outcome)
{
    counted.requests_timed_out += outcome == Errc::timed_out ? 1 : 0;
    if (outcome == cancelled()) {
        --counted.requests;
    } else if (!outcome) {
        ++counted.requests_done;
    } else if (refused(outcome)) {
        ++counted.requests_refused;
    } else {
        ++counted.requests_failed;
    }
}

void RequestDesk::note_round_trip(Clock::duration took)
{
    const auto us = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(took).count());
    const bool first = counted.requests_done + counted.requests_refused == 1;
    counted.round_trip_last_us = us;
    counted.round_trip_min_us = first ? us : std::min(counted.round_trip_min_us, us);
    counted.round_trip_max_us = std::max(counted.round_trip_max_us, us);
    counted.round_trip_sum_us += us;
}

void RequestDesk::count(Stats& stats) const
{
    const std::lock_guard<std::mutex> lock(guard);
    stats.requests = counted.requests;
    stats.requests_done = counted.requests_done;
    stats.requests_refused = counted.requests_refused;
    stats.requests_failed = counted.requests_failed;
    stats.requests_timed_out = counted.requests_timed_out;
    stats.round_trip_last_us = counted.round_trip_last_us;
    stats.round_trip_min_us = counted.round_trip_min_us;
    stats.round_trip_max_us = counted.round_trip_max_us;
    stats.round_trip_sum_us = counted.round_trip_sum_us;
}

} // namespace zu::detail
