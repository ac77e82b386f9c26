// Waiting on descriptors with `select`, whatever their numbers.
//
// The timing of the library is built on `select`, but 256 logins hold more descriptors than a plain
// `fd_set` has bits. The sets used here reach to descriptor 65,535; one beyond that, or a negative
// one, fails the wait as a bad descriptor fails `select`.
//
// Runs on any thread; keeps nothing between calls.
#pragma once

#include <sys/time.h>

enum fd_condition : unsigned char {
    fd_readable = 1,
    fd_writable = 2,
    fd_exceptional = 4,
    fd_readable_or_exceptional = fd_readable | fd_exceptional,
};

// One descriptor to wait for: what is wanted of it and, after the wait, what of that is there.
struct fd_watch {
    int fd;
    unsigned char wanted;
    unsigned char ready;
};

// Waits until a watched condition holds or the time is over. Returns what `select` returned and
// leaves errno as it left it; `timeout` is reduced to the time that remained. After 0 or -1 no
// watch is ready.
int fd_wait(fd_watch* watches, int count, timeval* timeout);

// Which of the wanted conditions of one descriptor are there right now, or -1 when that can't be
// told; errno stays. Whoever waits for an exceptional condition is woken by everything that arrives
// on the descriptor, so who need not know at once looks instead.
int fd_look(int fd, unsigned char wanted);
