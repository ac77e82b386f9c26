// Reading a TCP socket with as few calls as it allows.
//
// What has arrived behind the bytes that were asked for comes along and lies behind them, where the
// next ones are looked for first. Only the first read after a wait reads ahead, so a thread that
// waits when nothing is left looks at everything else once for each such read. While the rest of a
// long body is awaited, the socket can be told not to wake anybody for less (its low-water mark).
//
// Runs on the receiver thread; belongs to its connection. errno is as the reads leave it, as if
// each had been a recv: nothing else here touches it.
#pragma once

#include "link.h"

constexpr int read_ahead_size = 128 * 1024;

struct read_ahead {
    device_link* link;
    char* buffer;
    int size;
    int begin; // of what has arrived and has not been dropped yet, in the buffer
    int end;
    bool waited;     // nothing has been read since the last wait
    bool came_short; // the last read of the socket brought less than it had room for
    int mark;        // the low-water mark
    bool countable;  // it can be told how many bytes have arrived; otherwise no mark is set
};

// The buffer belongs to the caller, the link is held by it.
void read_ahead_open(read_ahead& in, device_link* link, char* buffer, int size);

// What is there.
inline char* read_ahead_bytes(const read_ahead& in)
{
    return in.buffer + in.begin;
}
inline int read_ahead_count(const read_ahead& in)
{
    return in.end - in.begin;
}

// Reads `lacking` bytes behind what is there, without waiting: the result of recv, and its errno.
// What is there goes to the front of the buffer, which has to have room for both. A link that was
// shut down meanwhile makes a failed or empty read look as if its descriptor had been closed. A
// read that follows another without a wait may pass urgent data, which can't be seen any more then,
// so it is looked for and noted in the link.
int read_ahead_more(read_ahead& in, int lacking);

// The same when `lacking` of `wanted` bytes are there already: what a recv of all would have
// brought. Is no failure, whatever the read does.
int read_ahead_rest(read_ahead& in, int wanted, int lacking);

// The first bytes have served their purpose.
void read_ahead_drop(read_ahead& in, int count);

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
