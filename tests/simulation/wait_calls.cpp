// The calls of poll and ppoll. See calls.h.
#include "calls.h"

#include <poll.h>

using namespace sim;

namespace
{

struct watched {
    pollfd* watch;
    descriptor_ref one;

    // What is there of that which is asked for, and the end, which is told unasked.
    short events() const
    {
        const int there = (one->readable() ? POLLIN : 0) | (one->writable() ? POLLOUT : 0) |
                          (one->exceptional() ? POLLPRI : 0);
        const int end = one->shut_for_reading && one->shut_for_writing ? POLLHUP : 0;
        return static_cast<short>((there & watch->events) | end);
    }
};

using watch_list = std::vector<watched>;

bool any_ready(const watch_list& list)
{
    for (const watched& w : list) {
        if (w.events() != 0) {
            return true;
        }
    }
    return false;
}

// False when one of the descriptors is not open.
bool collect(const entered& c, pollfd* watches, nfds_t count, watch_list& list)
{
    for (nfds_t i = 0; i < count; i++) {
        list.push_back({&watches[i], c.find(watches[i].fd)});
        if (list.back().one == nullptr) {
            return false;
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
        "ppoll", [&] { return any_ready(list); }, until);
    for (const watched& w : list) {
        w.one->waiting--;
    }
}

// Says how many descriptors have something.
int report(const watch_list& list)
{
    int ready = 0;
    for (const watched& w : list) {
        w.watch->revents = w.events();
        ready += w.watch->revents != 0 ? 1 : 0;
    }
    return ready;
}

} // namespace

extern "C" {

int sim_ppoll(pollfd* watches, nfds_t count, const timespec* limit, const sigset_t*)
{
    const entered c("ppoll", FROM);
    watch_list list;
    if (c.fails() || !collect(c, watches, count, list)) {
        return -1;
    }
    wait_for_any(c, list, c.on.now() + limit->tv_sec * seconds + limit->tv_nsec / 1000);
    return report(list);
}

// A look without waiting at one descriptor.
int sim_poll(pollfd* watch, nfds_t, int)
{
    const entered c("poll", FROM);
    watch_list list;
    if (c.fails() || !collect(c, watch, 1, list)) {
        return -1;
    }
    const int ready = report(list);
    if ((watch->events & POLLIN) != 0 && (watch->revents & (POLLIN | POLLHUP)) == 0) {
        c.on.threads.spend(c.on.fruitless_time); // it stands for a read that would find nothing
    }
    return ready;
}
}
