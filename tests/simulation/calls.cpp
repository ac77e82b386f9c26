// The functions that the library's simulated copy calls in place of libc's. See machine.h.
//
// Each takes a little time, asks what is to become of it, and then does on the machine what the
// real function does on a real one.
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "machine.h"

using namespace sim;

namespace
{

constexpr size_t largest_datagram = 65507; // of UDP over IPv4

// One call under way. Fails as told, or goes on.
class entered
{
public:
    entered(const char* function, const place& from) : on(machine::current()), name(function)
    {
        const int before = errno;
        on.threads.spend(call_time);
        if (on.before_call) {
            told = on.before_call({function, from});
        }
        errno = before;
        if (told.error) {
            on.threads.spend(on.fruitless_time);
            errno = *told.error;
        }
    }
    bool fails() const
    {
        return told.error.has_value();
    }
    int error() const
    {
        return *told.error;
    }
    size_t limited(size_t size) const
    {
        return told.at_most && *told.at_most < size ? *told.at_most : size;
    }
    descriptor_ref find(int number) const
    {
        return on.descriptors.find(number, name);
    }
    // The result of a call that could do nothing.
    int fail(int error) const
    {
        on.threads.spend(on.fruitless_time);
        errno = error;
        return -1;
    }

    machine& on;

private:
    const char* const name;
    verdict told;
};

// The wait of a call on one descriptor; in the end something it waits for is there.
bool block_until(const entered& c, const char* name, const descriptor_ref& on,
                 const std::function<bool()>& ready, micros until = never)
{
    return c.on.wait_on(name, on, ready, until);
}

unsigned short port_of(const sockaddr* address)
{
    sockaddr_in in;
    memcpy(&in, address, sizeof(in));
    return ntohs(in.sin_port);
}

void set_address(sockaddr* address, unsigned short port)
{
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    in.sin_port = htons(port);
    memcpy(address, &in, sizeof(in));
}

std::string text_of(const void* data, size_t size)
{
    return {static_cast<const char*>(data), size};
}

ssize_t take(std::string& from, void* into, size_t room)
{
    const size_t size = from.size() < room ? from.size() : room;
    memcpy(into, from.data(), size);
    from.erase(0, size);
    return static_cast<ssize_t>(size);
}

int take_error(const descriptor_ref& socket)
{
    const int error = socket->pending_error;
    socket->pending_error = 0;
    return error;
}

ssize_t receive_tcp(const entered& c, const descriptor_ref& socket, void* into, size_t room,
                    int flags)
{
    if (!socket->readable() && ((flags & MSG_DONTWAIT) != 0)) {
        return c.fail(EAGAIN);
    }
    block_until(c, "recv", socket, [&] { return socket->readable(); });
    if (!socket->inbound.empty()) {
        return take(socket->inbound, into, room);
    }
    if (socket->pending_error != 0) {
        return c.fail(take_error(socket));
    }
    if (socket->state == tcp_state::fresh) {
        return c.fail(ENOTCONN);
    }
    c.on.threads.spend(c.on.fruitless_time);
    return 0;
}

ssize_t receive_udp(const entered& c, const descriptor_ref& socket, void* into, size_t room,
                    unsigned short* from)
{
    block_until(c, "recvfrom", socket, [&] { return socket->readable(); });
    if (socket->datagrams.empty()) {
        c.on.threads.spend(c.on.fruitless_time);
        return 0; // shut down
    }
    datagram first = std::move(socket->datagrams.front());
    socket->datagrams.pop_front();
    *from = first.from;
    return take(first.bytes, into, room); // what has no room is lost
}

ssize_t send_tcp(const entered& c, const descriptor_ref& socket, const void* data, size_t size)
{
    const micros until = socket->send_limit == never ? never : c.on.now() + socket->send_limit;
    if (!block_until(
            c, "send", socket, [&] { return socket->writable(); }, until)) {
        return c.fail(EAGAIN);
    }
    if (socket->pending_error != 0) {
        return c.fail(take_error(socket));
    }
    if (socket->shut_for_writing || socket->to == nullptr) {
        return c.fail(EPIPE);
    }
    c.on.send_to_device(socket, text_of(data, size));
    return static_cast<ssize_t>(size);
}

ssize_t send_datagram(const entered& c, const descriptor_ref& socket, const void* data, size_t size,
                      const sockaddr* to)
{
    if (socket->port == 0) {
        socket->port = c.on.descriptors.free_port();
    }
    if (socket->shut_for_writing) {
        return c.fail(EPIPE);
    }
    if (size > largest_datagram) {
        return c.fail(EMSGSIZE);
    }
    if (const descriptor_ref there = c.on.descriptors.bound_to(port_of(to))) {
        there->datagrams.push_back({text_of(data, size), socket->port});
    }
    return static_cast<ssize_t>(size);
}

// ---- select ------------------------------------------------------------------------------------

bool has_bit(const fd_set* set, int number)
{
    const auto* words = reinterpret_cast<const unsigned long*>(set);
    return set != nullptr && (words[number / 64] >> (number % 64) & 1) != 0;
}

void set_bit(fd_set* set, int number)
{
    reinterpret_cast<unsigned long*>(set)[number / 64] |= 1UL << (number % 64);
}

void clear(fd_set* set, int count)
{
    if (set != nullptr) {
        memset(static_cast<void*>(set), 0, static_cast<size_t>((count + 63) / 64) * 8);
    }
}

struct watched {
    descriptor_ref one;
    bool in;
    bool out;
    bool except;

    bool ready() const
    {
        return (in && one->readable()) || (out && one->writable()) ||
               (except && one->exceptional());
    }
};

using watch_list = std::vector<watched>;

bool any_ready(const watch_list& list)
{
    for (const watched& w : list) {
        if (w.ready()) {
            return true;
        }
    }
    return false;
}

// False when one of the descriptors is not open.
bool collect(const entered& c, int count, const fd_set* in, const fd_set* out, const fd_set* except,
             watch_list& list)
{
    for (int number = 0; number < count; number++) {
        const watched w = {nullptr, has_bit(in, number), has_bit(out, number),
                           has_bit(except, number)};
        if (w.in || w.out || w.except) {
            list.push_back(w);
            list.back().one = c.find(number);
            if (list.back().one == nullptr) {
                return false;
            }
        }
    }
    return true;
}

void wait_for_any(const entered& c, const watch_list& list, micros until)
{
    for (const watched& w : list) {
        w.one->waiting++;
    }
    c.on.threads.wait(
        "select", [&] { return any_ready(list); }, until);
    for (const watched& w : list) {
        w.one->waiting--;
    }
}

// Sets the bits of what is there; says how many.
int report(const watch_list& list, fd_set* in, fd_set* out, fd_set* except)
{
    int bits = 0;
    for (const watched& w : list) {
        const auto tell = [&](bool there, fd_set* set) {
            if (there) {
                set_bit(set, w.one->number);
                bits++;
            }
        };
        tell(w.in && w.one->readable(), in);
        tell(w.out && w.one->writable(), out);
        tell(w.except && w.one->exceptional(), except);
    }
    return bits;
}

} // namespace

// The second address is read from the frame of the library's function, which is always there.
#pragma GCC diagnostic ignored "-Wframe-address"
#define FROM                                                                                       \
    place                                                                                          \
    {                                                                                              \
        __builtin_return_address(0), __builtin_return_address(1)                                   \
    }

extern "C" {

// ---- sockets -----------------------------------------------------------------------------------

int sim_socket(int, int type, int)
{
    const entered c("socket", FROM);
    return c.fails() ? -1 : c.on.descriptors.open(type == SOCK_STREAM ? kind::tcp : kind::udp);
}

int sim_bind(int fd, const sockaddr*, socklen_t)
{
    const entered c("bind", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    socket->port = c.on.descriptors.free_port();
    return 0;
}

int sim_getsockname(int fd, sockaddr* address, socklen_t*)
{
    const entered c("getsockname", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    set_address(address, socket->port);
    return 0;
}

int sim_connect(int fd, const sockaddr* to, socklen_t)
{
    const entered c("connect", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : c.on.connect(socket, port_of(to));
}

int sim_shutdown(int fd, int)
{
    const entered c("shutdown", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    c.on.shut(socket, true, true);
    if (socket->is == kind::udp) {
        return c.fail(ENOTCONN); // and yet it has woken whoever reads
    }
    return 0;
}

int sim_setsockopt(int fd, int level, int name, const void* value, socklen_t)
{
    const entered c("setsockopt", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    if (level == SOL_SOCKET && name == SO_SNDTIMEO) {
        timeval time;
        memcpy(&time, value, sizeof(time));
        socket->send_limit = time.tv_sec * seconds + time.tv_usec;
    }
    return 0;
}

int sim_getsockopt(int fd, int level, int name, void* value, socklen_t* length)
{
    const entered c("getsockopt", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    if (level == SOL_SOCKET && name == SO_ERROR) {
        const int error = take_error(socket);
        memcpy(value, &error, sizeof(error));
        return 0;
    }
    static const unsigned char states[] = {7, 2, 7, 1, 8, 5, 7}; // as tcp_state, in Linux's numbers
    tcp_info info = {};
    info.tcpi_state = states[static_cast<int>(socket->state)];
    memcpy(value, &info, *length);
    return 0;
}

ssize_t sim_recv(int fd, void* into, size_t room, int flags)
{
    const entered c("recv", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    unsigned short from = 0;
    return socket->is == kind::udp ? receive_udp(c, socket, into, c.limited(room), &from)
                                   : receive_tcp(c, socket, into, c.limited(room), flags);
}

ssize_t sim_recvfrom(int fd, void* into, size_t room, int, sockaddr* address, socklen_t*)
{
    const entered c("recvfrom", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    if (socket == nullptr) {
        return -1;
    }
    unsigned short from = 0;
    const ssize_t count = receive_udp(c, socket, into, c.limited(room), &from);
    set_address(address, from);
    return count;
}

ssize_t sim_send(int fd, const void* data, size_t size, int)
{
    const entered c("send", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : send_tcp(c, socket, data, c.limited(size));
}

ssize_t sim_sendto(int fd, const void* data, size_t size, int, const sockaddr* to, socklen_t)
{
    const entered c("sendto", FROM);
    const descriptor_ref socket = c.fails() ? nullptr : c.find(fd);
    return socket == nullptr ? -1 : send_datagram(c, socket, data, c.limited(size), to);
}

int sim_select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout)
{
    const entered c("select", FROM);
    watch_list list;
    if (c.fails() || !collect(c, count, in, out, except, list)) {
        return -1;
    }
    const micros limit = timeout->tv_sec * seconds + timeout->tv_usec;
    const micros until = c.on.now() + limit;
    wait_for_any(c, list, until);
    const micros left = until > c.on.now() ? until - c.on.now() : 0;
    *timeout = {left / seconds, left % seconds};
    clear(in, count);
    clear(out, count);
    clear(except, count);
    return report(list, in, out, except);
}

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

int sim_prctl(int, const char* name)
{
    const entered c("prctl", FROM);
    if (c.fails()) {
        return -1;
    }
    c.on.threads.name_thread(std::string(name).substr(0, 15));
    return 0;
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
