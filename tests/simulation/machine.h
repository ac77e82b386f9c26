// A machine of its own for the library: threads, clock, descriptors and devices, all in user space.
//
// The library's copy that is linked with it calls sim_* instead of libc's functions (CMake renames
// them in the archive), and sim_* (calls.cpp) act on the one machine that is there. Calls can be
// made to fail, to move fewer bytes, or to come late.
//
// One thread runs at a time (scheduler.h), so nothing here is locked. The thread that makes the
// machine is its first; a test that must wait on it uses machine::wait and let_pass.
#pragma once

#include <optional>

#include "descriptors.h"
#include "scheduler.h"

namespace sim
{

constexpr micros call_time = 2;                  // every call
constexpr micros epoch = 1800000000LL * seconds; // the wall clock's reading at the start

// Where in the library a call is made: the return addresses of it and of the function it stands in.
// The library's copy is built with frame pointers and without inlining.
struct place {
    const void* here;
    const void* caller;

    bool operator<(const place& other) const
    {
        return here != other.here ? here < other.here : caller < other.caller;
    }
    bool operator==(const place& other) const
    {
        return here == other.here && caller == other.caller;
    }
};

// A call that the library is about to make.
struct call {
    const char* function;
    place from;
};

// What is to become of it.
struct verdict {
    std::optional<int> error;      // it fails with this errno (or this result, for pthread calls)
    std::optional<size_t> at_most; // it moves no more bytes than these
};

class machine
{
public:
    explicit machine(unsigned seed = 1);
    ~machine();

    static machine& current();

    // ---- for tests ----
    void listen(unsigned short port, device* here);
    void answer(unsigned short port, answer_to_connect how);
    micros now() const
    {
        return threads.now();
    }
    void let_pass(micros time);
    bool wait(const std::function<bool()>& ready, micros at_most);
    void at(micros when, std::function<void()> what)
    {
        threads.at(when, std::move(what));
    }
    // A thread of the application's, to be joined with join.
    pthread_t start(std::function<void()> what);
    void join(pthread_t thread)
    {
        threads.join(thread);
    }
    // What has not been given back; empty when nothing is left. Waits for threads that are about to
    // end.
    std::string left_over();
    std::vector<std::string>& complaints()
    {
        return descriptors.complaints;
    }

    std::function<verdict(const call&)> before_call; // on the calling thread
    micros clock_step = 0;                           // the wall clock's error
    micros network_time = 100;                       // one way to a device
    micros fruitless_time = 1 * milliseconds;        // of a call that fails or moves nothing
    int ping_result = 0;                             // wait status of the "ping" program

    // ---- for calls.cpp ----
    scheduler threads;
    descriptor_table descriptors;
    std::map<unsigned short, device*> devices;
    std::map<unsigned short, answer_to_connect> answers;
    std::map<const pthread_mutex_t*, bool> mutexes; // whether locked
    std::map<void*, size_t> mappings;
    int connections = 0;

    // Waits on a descriptor as its owner.
    bool wait_on(const char* call, const descriptor_ref& on, const std::function<bool()>& ready,
                 micros until = never);
    int connect(const descriptor_ref& socket, unsigned short port);
    void shut(const descriptor_ref& socket, bool reading, bool writing);
    void send_to_device(const descriptor_ref& socket, const std::string& bytes);

private:
    void begin_connect(const descriptor_ref& socket, unsigned short port);
    void established(const descriptor_ref& socket, unsigned short port);
};

} // namespace sim
