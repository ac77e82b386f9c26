// Reading a TCP socket with as few calls as it allows.
//
// What has arrived behind the bytes that were asked for comes along into a block, and is copied
// from there by the next reads. Only the first read after a wait fills the block, so a thread that
// waits whenever the block is empty looks at everything else at least once per block. While the
// rest of a long body is awaited, the socket can be told not to wake anybody for less (its
// low-water mark).
//
// Runs on the receiver thread; belongs to its connection. errno is as the reads leave it, as if
// each had been a recv: nothing else here touches it.
#pragma once

#include "link.h"

constexpr int read_ahead_size = 64 * 1024;

struct read_ahead {
    device_link* link;
    char* block; // read_ahead_size bytes
    int begin;   // the bytes of the block that nobody has taken yet
    int end;
    bool waited;     // nothing has been read since the last wait
    bool came_short; // the last read of the socket brought less than it had room for
    int mark;        // the low-water mark
    bool countable;  // it can be told how many bytes have arrived; otherwise no mark is set
};

// The block belongs to the caller, the link is held by it.
void read_ahead_open(read_ahead& in, device_link* link, char* block);

inline bool read_ahead_empty(const read_ahead& in)
{
    return in.begin == in.end;
}

// Takes up to `room` bytes, without waiting: the result of recv, and its errno. A link that was
// shut down meanwhile makes a failed or empty read look as if its descriptor had been closed. A
// read that follows another without a wait may pass urgent data, which can't be seen any more then,
// so it is looked for and noted in the link.
int read_ahead_take(read_ahead& in, char* into, int room);

// The same, but never less than a recv would have taken: when the block ends before the room does,
// what has arrived since comes along.
int read_ahead_take_all(read_ahead& in, char* into, int room);

// Before a wait for `lacking` bytes of a body, 0 for a header: sets the mark. Returns it.
int read_ahead_expect(read_ahead& in, int lacking);

// After a wait that found the socket readable.
inline void read_ahead_ready(read_ahead& in)
{
    in.waited = true;
}

// How many bytes the socket holds, below the mark or not. Takes nothing, neither bytes nor a
// pending error. 0 when it can't be told.
int read_ahead_arrived(read_ahead& in);
