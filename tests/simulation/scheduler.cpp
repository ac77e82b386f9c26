// Threads and a clock for a simulated machine. See scheduler.h.
#include "scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <semaphore.h>
#include <unistd.h>

namespace sim
{

struct sim_thread {
    explicit sim_thread(scheduler& in) : home(in)
    {
        sem_init(&baton, 0, 0);
    }
    ~sim_thread()
    {
        sem_destroy(&baton);
    }

    scheduler& home;
    sem_t baton;
    unsigned number = 0;
    std::string name = "main";
    pthread_t real = {};
    void* (*main)(void*) = nullptr;
    void* argument = nullptr;
    void* result = nullptr;
    bool detached = false;
    bool ended = false;

    // What it waits for while it has not got the baton.
    const char* call = "";
    const std::function<bool()>* ready = nullptr; // null: it may run at any time
    micros until = never;

    bool may_run(micros now) const
    {
        return !ended && (ready == nullptr || until <= now || (*ready)());
    }
};

namespace
{

constexpr int patience = 50;                   // calls that a thread may make at a stretch
constexpr micros long_call = 1 * milliseconds; // a call that takes so long lets others run

thread_local sim_thread* me;
thread_local bool acting; // it does what is due
std::string run_name;
bool by_abort;

void wait_for(sem_t& there)
{
    while (sem_wait(&there) != 0) {
    }
}

} // namespace

void abort_when_giving_up()
{
    by_abort = true;
}

void set_run_name(const std::string& name)
{
    run_name = name;
}

void give_up(const std::string& why)
{
    fprintf(stderr, "%s: %s\n", run_name.c_str(), why.c_str());
    fflush(nullptr);
    if (by_abort) {
        abort();
    }
    _exit(3);
}

scheduler::scheduler(unsigned seed) : dice(seed)
{
    threads.push_back(std::make_unique<sim_thread>(*this));
    me = threads.front().get();
    me->real = pthread_self();
    threads_made = 1;
}

scheduler::~scheduler()
{
    if (running() != 0) {
        give_up("threads are left at the end: " + where_they_wait());
    }
    reap_detached();
    if (threads.size() != 1) {
        give_up("a thread has ended and was never joined: " + threads.back()->name);
    }
    me = nullptr;
}

void scheduler::at(micros when, std::function<void()> what)
{
    due.emplace(when, std::move(what));
}

// What is done here is not the thread's own doing, so it takes none of its time, and nothing else
// that is due breaks in on it.
void scheduler::do_what_is_due()
{
    if (acting) {
        return;
    }
    acting = true;
    while (!due.empty() && due.begin()->first <= clock) {
        auto what = std::move(due.begin()->second);
        due.erase(due.begin());
        what();
    }
    acting = false;
}

// On to the next moment at which anything happens; false when there is none.
bool scheduler::move_clock()
{
    micros next = due.empty() ? never : due.begin()->first;
    for (const auto& thread : threads) {
        if (!thread->ended) {
            next = std::min(next, thread->until);
        }
    }
    if (next == never) {
        return false;
    }
    clock = std::max(clock, next);
    if (clock > limit) {
        give_up("the run hangs: " + where_they_wait());
    }
    do_what_is_due();
    return true;
}

sim_thread* scheduler::choose()
{
    for (;;) {
        std::vector<sim_thread*> able;
        for (const auto& thread : threads) {
            if (thread->may_run(clock)) {
                able.push_back(thread.get());
            }
        }
        if (!able.empty()) {
            return able.size() == 1 ? able.front() : able[dice() % able.size()];
        }
        if (!move_clock()) {
            give_up("every thread waits for ever: " + where_they_wait());
        }
    }
}

void scheduler::hand_over(const char* call)
{
    me->call = call;
    kept = 0;
    sim_thread* next = choose();
    if (next != me) {
        sem_post(&next->baton);
        if (me->ended) {
            return;
        }
        wait_for(me->baton);
    }
    me->ready = nullptr;
    me->until = never;
}

bool scheduler::wait(const char* call, const std::function<bool()>& ready, micros until)
{
    do_what_is_due();
    if (ready()) {
        return true;
    }
    me->ready = &ready;
    me->until = until;
    hand_over(call);
    return ready();
}

void scheduler::spend(micros time)
{
    if (acting) {
        return;
    }
    clock += time;
    if (clock > limit) {
        give_up("the run hangs: " + where_they_wait());
    }
    do_what_is_due();
    if (++kept > patience || time >= long_call ||
        (restlessness != 0 && dice() % restlessness == 0)) {
        hand_over("its turn");
    }
}

void* scheduler::run_thread(void* self)
{
    me = static_cast<sim_thread*>(self);
    wait_for(me->baton);
    me->ready = nullptr;
    me->until = never;
    me->result = me->main(me->argument);
    me->ended = true;
    me->home.hand_over("the end"); // goes to somebody else, for good
    return nullptr;
}

int scheduler::create(pthread_t* thread, void* (*main)(void*), void* argument)
{
    static const std::function<bool()> not_yet = [] { return false; };
    reap_detached();
    auto fresh = std::make_unique<sim_thread>(*this);
    fresh->number = threads_made++;
    fresh->name = me->name; // inherited, as the system does
    fresh->main = main;
    fresh->argument = argument;
    const micros delay = start_delay ? start_delay(fresh->number) : 0;
    if (delay > 0) {
        fresh->ready = &not_yet;
        fresh->until = clock + delay;
    }
    if (pthread_create(&fresh->real, nullptr, run_thread, fresh.get()) != 0) {
        give_up("this machine is out of threads");
    }
    *thread = fresh->real;
    threads.push_back(std::move(fresh));
    return 0;
}

sim_thread& scheduler::find(pthread_t thread)
{
    const auto at = std::find_if(threads.begin(), threads.end(), [&](const auto& one) {
        return pthread_equal(one->real, thread) != 0;
    });
    if (at == threads.end()) {
        give_up("a thread that is not there is joined or detached");
    }
    return **at;
}

// Its real thread is on its way out and needs nothing from here any more.
void scheduler::reap(sim_thread& thread)
{
    pthread_join(thread.real, nullptr);
    threads.erase(std::find_if(threads.begin(), threads.end(),
                               [&](const auto& one) { return one.get() == &thread; }));
}

void scheduler::reap_detached()
{
    for (size_t i = threads.size(); i-- > 0;) {
        if (threads[i]->detached && threads[i]->ended) {
            reap(*threads[i]);
        }
    }
}

void scheduler::join(pthread_t thread)
{
    sim_thread& other = find(thread);
    if (other.detached) {
        give_up("a detached thread is joined: " + other.name);
    }
    wait("pthread_join", [&] { return other.ended; });
    reap(other);
}

void scheduler::detach(pthread_t thread)
{
    sim_thread& other = find(thread);
    if (other.detached) {
        give_up("a thread is detached twice: " + other.name);
    }
    other.detached = true;
}

void scheduler::name_thread(const std::string& name)
{
    me->name = name;
}

const std::string& scheduler::thread_name() const
{
    return me->name;
}

unsigned scheduler::thread_number() const
{
    return me->number;
}

size_t scheduler::running() const
{
    size_t count = 0;
    for (const auto& thread : threads) {
        count += thread.get() != threads.front().get() && !thread->ended ? 1 : 0;
    }
    return count;
}

std::string scheduler::where_they_wait() const
{
    std::string text;
    for (const auto& thread : threads) {
        if (!thread->ended) {
            text += (text.empty() ? "" : ", ") + thread->name + " in " + thread->call;
        }
    }
    return text + " at " + std::to_string(clock / milliseconds) + " ms";
}

} // namespace sim
