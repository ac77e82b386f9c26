// The functions that the library's simulated copy calls in place of libc's: descriptors, time,
// threads, memory. Sockets are in socket_calls.cpp, waits in wait_calls.cpp. See calls.h.
#include "calls.h"

#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/time.h>

namespace sim
{

bool block_until(const entered& c, const char* name, const descriptor_ref& on,
                 const std::function<bool()>& ready, micros until)
{
    return c.on.wait_on(name, on, ready, until);
}

std::string text_of(const void* data, size_t size)
{
    must_be_initialised(data, size);
    return {static_cast<const char*>(data), size};
}

ssize_t take(std::string& from, void* into, size_t room)
{
    const size_t size = from.size() < room ? from.size() : room;
    memcpy(into, from.data(), size);
    from.erase(0, size);
    return static_cast<ssize_t>(size);
}

} // namespace sim

using namespace sim;

extern "C" {

// ---- descriptors -------------------------------------------------------------------------------

int sim_close(int fd)
{
    const entered c("close", FROM);
    const descriptor_ref closed = fd < 0 ? nullptr : c.find(fd);
    if (closed != nullptr && closed->is == kind::tcp) {
        c.on.shut(closed, true, true);
    }
    // A close that is interrupted has closed all the same.
    const bool done = fd >= 0 && c.on.descriptors.close(fd);
    return done && !c.fails() ? 0 : -1;
}

int sim_fcntl(int fd, int command, int value)
{
    const entered c("fcntl", FROM);
    const descriptor_ref one = c.fails() ? nullptr : c.find(fd);
    if (one == nullptr) {
        return -1;
    }
    switch (command) {
    case F_GETFL:
        return one->status_flags;
    case F_SETFL:
        one->status_flags = value;
        return 0;
    default:
        one->close_on_exec = true;
        return 0;
    }
}

int sim_pipe(int* ends)
{
    const entered c("pipe", FROM);
    if (c.fails()) {
        return -1;
    }
    int fresh[2];
    c.on.descriptors.open_pipe(fresh);
    ends[0] = fresh[0];
    ends[1] = fresh[1];
    return 0;
}

ssize_t sim_read(int fd, void* into, size_t room)
{
    const entered c("read", FROM);
    const descriptor_ref end = c.fails() ? nullptr : c.find(fd);
    if (end == nullptr) {
        return -1;
    }
    if (end->pipe->bytes.empty() && (end->status_flags & O_NONBLOCK) != 0) {
        return c.fail(EAGAIN);
    }
    block_until(c, "read", end, [&] { return end->readable(); });
    return take(end->pipe->bytes, into, c.limited(room));
}

ssize_t sim_write(int fd, const void* data, size_t size)
{
    const entered c("write", FROM);
    const descriptor_ref end = c.fails() ? nullptr : c.find(fd);
    if (end == nullptr) {
        return -1;
    }
    end->pipe->bytes += text_of(data, size);
    return static_cast<ssize_t>(size);
}

// ---- time --------------------------------------------------------------------------------------

time_t sim_time(time_t*)
{
    const entered c("time", FROM);
    return (epoch + c.on.now() + c.on.clock_step) / seconds;
}

int sim_gettimeofday(timeval* now, void*)
{
    const entered c("gettimeofday", FROM);
    if (c.fails()) {
        return -1;
    }
    const micros time = epoch + c.on.now() + c.on.clock_step;
    *now = {time / seconds, time % seconds};
    return 0;
}

int sim_clock_gettime(clockid_t, timespec* now)
{
    const entered c("clock_gettime", FROM);
    *now = {c.on.now() / seconds, c.on.now() % seconds * 1000};
    return 0;
}

tm* sim_localtime_r(const time_t* at, tm* into)
{
    const entered c("localtime_r", FROM);
    return c.fails() ? nullptr : gmtime_r(at, into);
}

int sim_usleep(useconds_t time)
{
    const entered c("usleep", FROM);
    if (c.fails()) {
        return -1;
    }
    c.on.let_pass(time);
    return 0;
}

unsigned sim_sleep(unsigned time)
{
    const entered c("sleep", FROM);
    if (c.fails()) {
        return time; // interrupted at once
    }
    c.on.let_pass(time * seconds);
    return 0;
}

// ---- threads -----------------------------------------------------------------------------------

int sim_pthread_create(pthread_t* thread, const pthread_attr_t*, void* (*main)(void*),
                       void* argument)
{
    const entered c("pthread_create", FROM);
    return c.fails() ? c.error() : c.on.threads.create(thread, main, argument);
}

int sim_pthread_join(pthread_t thread, void**)
{
    const entered c("pthread_join", FROM);
    c.on.threads.join(thread);
    return 0;
}

int sim_pthread_detach(pthread_t thread)
{
    const entered c("pthread_detach", FROM);
    c.on.threads.detach(thread);
    return 0;
}

int sim_prctl(int what, unsigned long value)
{
    const entered c("prctl", FROM);
    if (c.fails()) {
        return -1;
    }
    if (what == PR_SET_NAME) {
        c.on.threads.name_thread(std::string(reinterpret_cast<const char*>(value)).substr(0, 15));
        return 0;
    }
    return prctl(what, value); // the timer slack: of no consequence here, but it can be read back
}

int sim_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t*)
{
    const entered c("pthread_mutex_init", FROM);
    if (c.fails()) {
        return c.error();
    }
    if (!c.on.mutexes.emplace(mutex, false).second) {
        c.on.complaints().push_back("a mutex is initialised twice");
    }
    return 0;
}

int sim_pthread_mutex_destroy(pthread_mutex_t* mutex)
{
    const entered c("pthread_mutex_destroy", FROM);
    const auto at = c.on.mutexes.find(mutex);
    if (at == c.on.mutexes.end() || at->second) {
        c.on.complaints().push_back("a mutex is destroyed that is locked or not there");
        return EBUSY;
    }
    c.on.mutexes.erase(at);
    return 0;
}

int sim_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    const entered c("pthread_mutex_lock", FROM);
    c.on.threads.wait("pthread_mutex_lock", [&] {
        const auto at = c.on.mutexes.find(mutex);
        return at == c.on.mutexes.end() || !at->second;
    });
    const auto at = c.on.mutexes.find(mutex);
    if (at != c.on.mutexes.end()) { // one that is not initialised is the library's before Init
        at->second = true;
    }
    return 0;
}

int sim_pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    const auto at = machine::current().mutexes.find(mutex);
    if (at != machine::current().mutexes.end()) {
        at->second = false;
    }
    const entered c("pthread_mutex_unlock", FROM);
    return 0;
}

// ---- memory, programs, messages ----------------------------------------------------------------

void* sim_mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset)
{
    const entered c("mmap", FROM);
    if (c.fails()) {
        return MAP_FAILED;
    }
    void* memory = mmap(at, size, protection, flags, fd, offset);
    c.on.mappings[memory] = size;
    return memory;
}

int sim_munmap(void* memory, size_t size)
{
    const entered c("munmap", FROM);
    if (c.on.mappings.erase(memory) != 1) {
        c.on.complaints().push_back("memory is given back that was not taken");
    }
    return munmap(memory, size);
}

// The program runs without this process: only the parent's side of the call is simulated.
pid_t sim_vfork()
{
    const entered c("vfork", FROM);
    return c.fails() ? -1 : 4711;
}

pid_t sim_waitpid(pid_t pid, int* status, int)
{
    const entered c("waitpid", FROM);
    if (c.fails()) {
        return -1;
    }
    c.on.let_pass(1 * seconds);
    *status = c.on.ping_result;
    return pid;
}

void sim_perror(const char*)
{
    const entered c("perror", FROM); // what it would print is no matter of a simulated run
}
}
