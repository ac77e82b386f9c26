// Threads and a clock for a simulated machine: one thread runs at a time, and time is what the
// simulation says it is.
//
// Threads are real ones, but each waits for the baton and keeps it until it waits or spends time
// here. When every thread waits, the clock jumps to the next thing that is due, so hours of waiting
// take no time. Who runs next is drawn from the seed: the same seed gives the same run.
//
// Everything of the simulation belongs to whoever has the baton; nothing of it needs a lock. A
// thread that has never been in a simulation (a sanitizer's own, say) must not come here.
#pragma once

#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <pthread.h>
#include <random>
#include <string>
#include <vector>

namespace sim
{

using micros = long long;
constexpr micros never = std::numeric_limits<micros>::max();
constexpr micros milliseconds = 1000;
constexpr micros seconds = 1000 * milliseconds;

struct sim_thread;

class scheduler
{
public:
    explicit scheduler(unsigned seed);
    ~scheduler(); // on the thread that made it; every other one must have ended
    scheduler(const scheduler&) = delete;
    scheduler& operator=(const scheduler&) = delete;

    micros now() const
    {
        return clock;
    }

    // Runs `what` at that time, on whichever thread has the baton then.
    void at(micros when, std::function<void()> what);

    // Waits until `ready` holds (true) or the time has come (false). `call` says what for.
    bool wait(const char* call, const std::function<bool()>& ready, micros until = never);

    // Moves the clock on and does what has become due. Now and then another thread gets its turn.
    void spend(micros time);

    int create(pthread_t* thread, void* (*main)(void*), void* argument);
    void join(pthread_t thread);
    void detach(pthread_t thread);

    void name_thread(const std::string& name);
    const std::string& thread_name() const; // of the caller
    unsigned thread_number() const;         // the first is 0; no number is used twice
    size_t running() const;                 // threads that have not ended, the first left out
    std::string where_they_wait() const;

    // A time after which the whole run counts as hanging; it ends the process with a report.
    void set_limit(micros when)
    {
        limit = when;
    }
    // The chance, one in `turns`, that a call gives another thread its turn. 0: only waits do, and
    // calls of a thread that never waits.
    void set_restlessness(unsigned turns)
    {
        restlessness = turns;
    }
    // How long a thread whose number is not yet known waits before it begins; see threads by name.
    void set_start_delay(std::function<micros(unsigned number)> delay)
    {
        start_delay = std::move(delay);
    }

private:
    static void* run_thread(void* self);
    void hand_over(const char* call); // to whoever may run, or back to the caller at once
    sim_thread* choose();
    bool move_clock();
    void do_what_is_due();
    sim_thread& find(pthread_t thread);
    void reap(sim_thread& thread);
    void reap_detached();

    micros clock = 0;
    micros limit = never;
    unsigned restlessness = 0;
    int kept = 0; // calls since the baton last went on
    std::function<micros(unsigned)> start_delay;
    std::mt19937 dice;
    std::multimap<micros, std::function<void()>> due;
    std::vector<std::unique_ptr<sim_thread>> threads;
    unsigned threads_made = 0;
};

// Ends the process: the simulated run can't go on. The report goes to standard error.
[[noreturn]] void give_up(const std::string& why);

// Lets give_up abort, as a fuzzer wants it, instead of ending with status 3.
void abort_when_giving_up();

// What give_up puts in front of its report: which run this is.
void set_run_name(const std::string& name);

} // namespace sim
