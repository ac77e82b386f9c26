// The figures of a run, and how they are printed. Of the main thread.
#pragma once

#include <string>

#include "notes.h"
#include "viewer.h"

namespace soak
{

struct figures {
    std::string when;
    std::int64_t frames_received;
    std::int64_t frames_sent;
    std::int64_t frames_lost;
    std::int64_t requests_answered;
    std::int64_t requests_made;
    std::int64_t reconnections;
    std::int64_t logins;
    std::size_t descriptors;
    int threads;
    std::size_t memory; // KiB
};

figures read_figures(const std::string& when, const tally& counted, const counts& of_cameras);

void print_head();
void print(const figures& what);

// How memory grew from one to the other, if it grew by more than it may; else empty.
std::string growth(const figures& from, const figures& to);

// The sentences behind the table: what drops explain, and whether the machine kept up. The second
// argument is how late this process was woken, in microseconds.
void print_explanations(const counts& of_cameras, std::int64_t latest_wake);

} // namespace soak
