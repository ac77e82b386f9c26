// Waiting on descriptors of any number. See fd_wait.h. Runs on any thread.
#include "fd_wait.h"

#include <cerrno>
#include <poll.h>

namespace
{

constexpr long ns_a_us = 1000;

// What the system calls a condition: what is asked for, and what counts as it. Ends and errors are
// told unasked.
struct condition {
    unsigned char ours;
    short asked;
    short counts;
};

constexpr condition conditions[] = {
    {fd_readable, POLLIN, POLLIN | POLLHUP | POLLERR},
    {fd_writable, POLLOUT, POLLOUT | POLLERR},
    {fd_exceptional, POLLPRI, POLLPRI},
    {fd_broken, 0, POLLHUP | POLLERR},
};

short events_for(unsigned char wanted)
{
    int events = 0;
    for (const condition& each : conditions) {
        events |= (wanted & each.ours) != 0 ? each.asked : 0;
    }
    return static_cast<short>(events);
}

// Counts in `found` too.
unsigned char wanted_among(short events, unsigned char wanted, int* found)
{
    int ready = 0;
    for (const condition& each : conditions) {
        if ((wanted & each.ours) != 0 && (events & each.counts) != 0) {
            ready |= each.ours;
            ++*found;
        }
    }
    return static_cast<unsigned char>(ready);
}

int fail_on_bad_descriptor(fd_watch* watches, int count)
{
    for (int i = 0; i < count; i++) {
        watches[i].ready = 0;
    }
    errno = EBADF;
    return -1;
}

} // namespace

int fd_wait(fd_watch* watches, int count, timeval limit)
{
    pollfd polled[fd_wait_most];
    for (int i = 0; i < count; i++) {
        if (watches[i].fd < 0) { // would be passed over
            return fail_on_bad_descriptor(watches, count);
        }
        watches[i].ready = 0;
        polled[i] = {watches[i].fd, events_for(watches[i].wanted), 0};
    }
    const timespec exact = {limit.tv_sec, limit.tv_usec * ns_a_us};
    const int ret = ppoll(polled, static_cast<nfds_t>(count), &exact, nullptr);
    int found = 0;
    for (int i = 0; ret > 0 && i < count; i++) {
        if ((polled[i].revents & POLLNVAL) != 0) {
            return fail_on_bad_descriptor(watches, count);
        }
        watches[i].ready = wanted_among(polled[i].revents, watches[i].wanted, &found);
    }
    return ret > 0 ? found : ret;
}

int fd_look(int fd, unsigned char wanted)
{
    const int before = errno;
    pollfd watch = {fd, events_for(wanted), 0};
    const int ret = poll(&watch, 1, 0);
    errno = before;
    if (ret == -1) {
        return -1;
    }
    int found = 0;
    const int nothing_open = watch.revents & POLLNVAL; // a read will tell
    return wanted_among(static_cast<short>(nothing_open != 0 ? POLLERR : watch.revents), wanted,
                        &found);
}
