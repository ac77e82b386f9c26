// Pausing where it does not matter when exactly the pause ends.
//
// The kernel lets pauses of many threads that may end some milliseconds late end together, which
// wakes the processor less often. How late is the thread's timer slack; every wait of the thread
// has it, and so has every thread that it creates, so it is there during such a pause alone. Runs
// on any thread.
#pragma once

#include <unistd.h>

// Like usleep, but up to 10 ms longer.
void rough_pause(useconds_t time);
