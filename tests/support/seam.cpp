// The operating system as a seam. See seam.h.
#include "seam.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace support
{

namespace
{

std::mutex guard; // the two lists and the latest wait
std::vector<fault*> armed;
std::vector<std::shared_ptr<before_call::watch>> watches;
std::atomic<int> armed_count{0}; // of both lists
wait_request latest_wait;

void count_armed()
{
    armed_count = static_cast<int>(armed.size() + watches.size());
}

std::string thread_name()
{
    char name[17] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

} // namespace

fault::fault(const char* name, int with, int from, int how_often)
    : function(name), error(with), nth(from), times(how_often)
{
    const std::lock_guard<std::mutex> lock(guard);
    armed.push_back(this);
    count_armed();
}

fault::~fault()
{
    const std::lock_guard<std::mutex> lock(guard);
    armed.erase(std::find(armed.begin(), armed.end(), this));
    count_armed();
}

fault& fault::on_thread(const std::string& name)
{
    const std::lock_guard<std::mutex> lock(guard);
    thread = name.substr(0, 15);
    return *this;
}

fault& fault::returning(long result)
{
    const std::lock_guard<std::mutex> lock(guard);
    forced_result = result;
    return *this;
}

fault& fault::on_descriptor(int fd)
{
    descriptor = fd;
    return *this;
}

int fault::hits() const
{
    return struck;
}

bool fault::strikes(const char* name, long first_argument, long* result, int* with)
{
    if (function != name || (!thread.empty() && thread != thread_name()) ||
        (descriptor != -1 && descriptor != first_argument)) {
        return false;
    }
    const int call = ++seen;
    if (call < nth || call - nth >= times) {
        return false;
    }
    struck++;
    *result = forced_result;
    *with = error;
    return true;
}

before_call::before_call(const char* function, std::function<void()> step)
    : own(std::make_shared<watch>())
{
    own->function = function;
    own->step = std::move(step);
    const std::lock_guard<std::mutex> lock(guard);
    watches.push_back(own);
    count_armed();
}

before_call::~before_call()
{
    const std::lock_guard<std::mutex> lock(guard);
    watches.erase(std::find(watches.begin(), watches.end(), own));
    count_armed();
}

int before_call::count() const
{
    return own->calls;
}

static std::atomic<size_t> largest_room{0};

largest_recv::largest_recv()
{
    largest_room = 0;
}

size_t largest_recv::room() const
{
    return largest_room;
}

static void note_room(size_t room)
{
    size_t known = largest_room;
    while (room > known && !largest_room.compare_exchange_weak(known, room)) {
    }
}

static std::atomic<time_t> stopped_at{0}; // 0: it runs

stopped_clock::stopped_clock()
{
    stopped_at = time(nullptr);
}

stopped_clock::~stopped_clock()
{
    stopped_at = 0;
}

void stopped_clock::advance(int whole_seconds)
{
    stopped_at += whole_seconds;
}

wait_request last_wait()
{
    const std::lock_guard<std::mutex> lock(guard);
    return latest_wait;
}

// Counts a call that is about to be made and runs the steps that wait for it, without the lock.
static void announce(const char* name)
{
    std::vector<std::shared_ptr<before_call::watch>> waiting;
    {
        const std::lock_guard<std::mutex> lock(guard);
        for (const auto& watch : watches) {
            if (watch->function == name) {
                waiting.push_back(watch);
            }
        }
    }
    for (const auto& watch : waiting) {
        watch->calls++;
        if (watch->step) {
            watch->step();
        }
    }
}

static void remember_wait(const pollfd* watches, nfds_t count, const timespec* limit)
{
    const std::lock_guard<std::mutex> lock(guard);
    latest_wait.limit = {limit->tv_sec, limit->tv_nsec / 1000};
    latest_wait.descriptors.clear();
    for (nfds_t i = 0; i < count; i++) {
        latest_wait.descriptors.push_back(watches[i].fd);
    }
}

// Whether a call is to fail; sets errno then. The first argument matters for descriptors only.
static bool struck(const char* name, long first_argument, long* result, int* error)
{
    if (armed_count == 0) {
        return false;
    }
    const int before = errno;
    announce(name);
    bool any = false;
    {
        const std::lock_guard<std::mutex> lock(guard);
        for (fault* f : armed) {
            any = any || f->strikes(name, first_argument, result, error);
        }
    }
    errno = any && *error != 0 ? *error : before;
    return any;
}

} // namespace support

using support::remember_wait;
using support::struck;

// One function of the seam: fails as told, or passes the call on.
#define SEAM(type, name, parameters, first, arguments)                                             \
    type seam_##name parameters                                                                    \
    {                                                                                              \
        long result = 0;                                                                           \
        int error = 0;                                                                             \
        if (struck(#name, first, &result, &error)) {                                               \
            return static_cast<type>(result);                                                      \
        }                                                                                          \
        return name arguments;                                                                     \
    }

// The same for functions whose result is the error itself.
#define SEAM_PTHREAD(name, parameters, arguments)                                                  \
    int seam_##name parameters                                                                     \
    {                                                                                              \
        long result = 0;                                                                           \
        int error = 0;                                                                             \
        if (struck(#name, -1, &result, &error)) {                                                  \
            return error;                                                                          \
        }                                                                                          \
        return name arguments;                                                                     \
    }

extern "C" {
SEAM(int, socket, (int domain, int type, int protocol), -1, (domain, type, protocol))
SEAM(int, bind, (int fd, const sockaddr* to, socklen_t length), fd, (fd, to, length))
SEAM(int, connect, (int fd, const sockaddr* to, socklen_t length), fd, (fd, to, length))
SEAM(int, getsockname, (int fd, sockaddr* to, socklen_t* length), fd, (fd, to, length))
ssize_t seam_recv(int fd, void* into, size_t room, int flags)
{
    support::note_room(room);
    long result = 0;
    int error = 0;
    return struck("recv", fd, &result, &error) ? static_cast<ssize_t>(result)
                                               : recv(fd, into, room, flags);
}
SEAM(int, poll, (pollfd * watches, nfds_t count, int timeout), watches->fd,
     (watches, count, timeout))
SEAM(int, ioctl, (int fd, unsigned long what, void* argument), fd, (fd, what, argument))
SEAM(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t length), fd,
     (fd, level, name, value, length))
SEAM(ssize_t, recvfrom,
     (int fd, void* into, size_t room, int flags, sockaddr* from, socklen_t* length), fd,
     (fd, into, room, flags, from, length))
SEAM(ssize_t, send, (int fd, const void* data, size_t size, int flags), fd, (fd, data, size, flags))
SEAM(ssize_t, sendto,
     (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length), fd,
     (fd, data, size, flags, to, length))
SEAM(ssize_t, read, (int fd, void* into, size_t room), fd, (fd, into, room))
SEAM(ssize_t, write, (int fd, const void* data, size_t size), fd, (fd, data, size))
time_t seam_time(time_t* into)
{
    const time_t stopped = support::stopped_at;
    return stopped != 0 ? stopped : time(into);
}
SEAM(int, pipe, (int* ends), -1, (ends))
SEAM(int, usleep, (useconds_t time), time, (time))
SEAM(int, gettimeofday, (timeval * now, void* zone), -1, (now, zone))
SEAM_PTHREAD(pthread_create,
             (pthread_t * thread, const pthread_attr_t* attributes, void* (*main)(void*),
              void* argument),
             (thread, attributes, main, argument))
SEAM_PTHREAD(pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
             (mutex, attributes))

int seam_ppoll(pollfd* watches, nfds_t count, const timespec* limit, const sigset_t* mask)
{
    remember_wait(watches, count, limit);
    long result = 0;
    int error = 0;
    if (!struck("ppoll", -1, &result, &error)) {
        return ppoll(watches, count, limit, mask);
    }
    for (nfds_t i = 0; result > 0 && i < count; i++) {
        watches[i].revents = watches[i].events;
    }
    return static_cast<int>(result);
}

int seam_getsockopt(int fd, int level, int name, void* value, socklen_t* length)
{
    long result = 0;
    int error = 0;
    if (!struck("getsockopt", fd, &result, &error)) {
        return getsockopt(fd, level, name, value, length);
    }
    if (result == 0 && level == SOL_SOCKET && name == SO_ERROR) {
        *static_cast<int*>(value) = error;
    }
    return static_cast<int>(result);
}

int seam_fcntl(int fd, int command, int value)
{
    long result = 0;
    int error = 0;
    return struck("fcntl", fd, &result, &error) ? static_cast<int>(result)
                                                : fcntl(fd, command, value);
}

void* seam_mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset)
{
    long result = 0;
    int error = 0;
    return struck("mmap", -1, &result, &error) ? MAP_FAILED
                                               : mmap(at, size, protection, flags, fd, offset);
}

int seam_munmap(void* memory, size_t size)
{
    long result = 0;
    int error = 0;
    return struck("munmap", -1, &result, &error) ? static_cast<int>(result) : munmap(memory, size);
}

tm* seam_localtime_r(const time_t* at, tm* into)
{
    long result = 0;
    int error = 0;
    return struck("localtime_r", -1, &result, &error) ? nullptr : localtime_r(at, into);
}

int seam_vfork_struck()
{
    long result = 0;
    int error = 0;
    return struck("vfork", -1, &result, &error) ? 1 : 0;
}
}

// vfork returns twice into the frame of its caller, so the seam must not have a frame of its own
// when it passes the call on.
asm(R"(
    .text
    .globl seam_vfork
    .type seam_vfork, @function
seam_vfork:
    subq $8, %rsp
    call seam_vfork_struck@PLT
    addq $8, %rsp
    testl %eax, %eax
    jne 1f
    jmp vfork@PLT
1:  movl $-1, %eax
    ret
    .size seam_vfork, .-seam_vfork
)");
