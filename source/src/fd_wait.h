// Waiting on descriptors, whatever their numbers.
//
// The conditions are those of `select`, in whose terms the library's timing is stated. The call is
// `ppoll`: 256 logins hold more descriptors than an `fd_set` has bits, and sets that reach far
// enough are the dearest part of a wait.
//
// Runs on any thread; keeps nothing between calls.
#pragma once

#include <sys/time.h>

enum fd_condition : unsigned char {
    fd_readable = 1, // data, an end or an error
    fd_writable = 2,
    fd_exceptional = 4,
    fd_broken = 8, // an end or an error: what data alone wakes nobody for
    fd_readable_or_exceptional = fd_readable | fd_exceptional,
};

// One descriptor to wait for: what is wanted of it and, after the wait, what of that is there. Ends
// and errors end the wait unasked, so every watch wants fd_readable or fd_broken, as which they
// count.
struct fd_watch {
    int fd;
    unsigned char wanted;
    unsigned char ready;
};

constexpr int fd_wait_most = 4; // descriptors that can be waited for at once

// Waits until a watched condition holds or the limit is over. Returns how many conditions hold, 0
// when the limit is over, or -1 with errno, also for a number that is no open descriptor. After 0
// or -1 no watch is ready.
int fd_wait(fd_watch* watches, int count, timeval limit);

// Which of the wanted conditions of one descriptor are there right now, or -1 when that can't be
// told; errno stays. Whoever waits for an exceptional condition is woken by everything that arrives
// on the descriptor, so who need not know at once looks instead.
int fd_look(int fd, unsigned char wanted);
