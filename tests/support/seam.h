// The operating system as a seam: the library's calls of libc functions can be made to fail.
//
// The tests link a copy of the library whose calls of the functions below go through the seam
// (CMake renames them in the archive); calls of the test kit and of the tests do not. Without a
// fault the seam passes every call on.
//
//     bind connect fcntl getsockname getsockopt gettimeofday ioctl localtime_r mmap munmap pipe
//     poll ppoll pthread_create pthread_mutex_init read recv recvfrom send sendto setsockopt
//     socket time usleep vfork write
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <sys/time.h>
#include <vector>

#include "eventually.h"

namespace support
{

constexpr int for_ever = 1 << 30;

// While it lives, calls of `function` by the library fail: from the `nth` next one on, `times` of
// them, with `error` (errno, or the result for pthread functions). With `result` the calls return
// that instead of -1, without being made; errno is then set only if `error` is not 0. A getsockopt
// that returns 0 in this way reads `error` as the pending error of the socket; a ppoll that returns
// more has found all that it was asked for.
class fault
{
public:
    fault(const char* function, int error, int nth = 1, int times = for_ever);
    ~fault();
    fault(const fault&) = delete;
    fault& operator=(const fault&) = delete;

    // Only for threads of this name ("sdk_msgsender_main"; the first 15 characters count).
    fault& on_thread(const std::string& name);
    fault& returning(long result);
    // Only calls whose first argument is this descriptor (for usleep: this time).
    fault& on_descriptor(int fd);

    int hits() const; // calls that have failed so far

    // For the seam itself.
    bool strikes(const char* function, long first_argument, long* result, int* error);

private:
    const std::string function;
    const int error;
    const int nth;
    const int times;
    std::string thread;
    long forced_result = -1;
    std::atomic<long> descriptor{-1};
    std::atomic<int> seen{0};
    std::atomic<int> struck{0};
};

// While it lives, the library's calls of `function` are counted, and `step` runs before each of
// them (also before one that a fault makes fail), on the thread that makes the call.
class before_call
{
public:
    explicit before_call(const char* function, std::function<void()> step = {});
    ~before_call();
    before_call(const before_call&) = delete;
    before_call& operator=(const before_call&) = delete;

    int count() const;

    struct watch {
        std::string function;
        std::function<void()> step;
        std::atomic<int> calls{0};
    };

private:
    const std::shared_ptr<watch> own;
};

// The most that a call of recv by the library had room for since this was made. One at a time.
class largest_recv
{
public:
    largest_recv();
    size_t room() const;
};

// While it lives, time as the library reads it stands still but for advance, whatever a busy
// machine does with the real one. One at a time.
class stopped_clock
{
public:
    stopped_clock();
    ~stopped_clock();
    stopped_clock(const stopped_clock&) = delete;
    stopped_clock& operator=(const stopped_clock&) = delete;

    void advance(int whole_seconds);
    // Second after second, until `done` holds: for a time limit that begins somewhere on the way.
    template <class Condition>
    bool advance_until(Condition done)
    {
        return eventually([&] {
            advance(1);
            return done();
        });
    }
};

// What the library's latest call of ppoll asked for, whichever thread made it.
struct wait_request {
    std::vector<int> descriptors;
    timeval limit;
};
wait_request last_wait();

} // namespace support
