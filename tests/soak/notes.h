// What the two processes of the soak tell each other, over one socket pair that keeps records
// whole: the side of the library tells what it has seen, the side of the cameras judges it.
// Any thread of the library's side may tell; it is the main thread alone that asks for the counts.
// All times are microseconds of CLOCK_MONOTONIC, which is one clock for both.
#pragma once

#include <array>
#include <cstdint>

namespace soak
{

enum class note_kind : std::int32_t {
    gap,            // of one camera: after frame a came frame b; b is no_frame at the end of all
    barrier,        // the read with command a was answered; the last frame until then was b
    barrier_missed, // the read with command a failed at c; the last frame until then was b
    request_failed, // begun at a, failed at b; c is its place in request_names
    login_failed,   // begun at a, failed at b
    logged_out,     // a Logout, or a Login that failed, begun at a, done at b
    stalled,        // from a to b the machine gave this process no time
    drops,          // a: 1 from now on, 0 none from now on
    close_books,    // all logins are up, and no Logout is under way
    give_counts,    // the only one that is answered
    end,
};

constexpr std::int64_t no_frame = -1; // also the number before the first frame, which is 0

struct note {
    note_kind kind;
    std::int32_t camera;
    std::int64_t a;
    std::int64_t b;
    std::int64_t c;
};

// The answer to give_counts.
struct counts {
    std::int64_t frames_sent;
    std::int64_t frames_lost; // each of them explained by the end of its link
    std::int64_t links_made;
    std::int64_t links_dropped;
    std::int64_t requests_without_link; // failed, and their link was down or went down meanwhile
    std::int64_t logins_without_link;
    std::int64_t frames_excused;     // of the lost: with links that the library ended then
    std::int64_t excused;            // failed while the machine stood still for a second and more
    std::int64_t left_out;           // frames that the cameras themselves gave up for a slow peer
    std::int64_t frames_due;         // by the clock
    std::int64_t frames_made;        // of those
    std::int64_t latest_frame;       // microseconds
    std::int64_t latest_answer;      // likewise, of the cameras alone
    std::int64_t latest_wake;        // likewise, of the cameras' process
    std::int64_t longest_tail;       // frames lost with one link
    std::array<char, 240> complaint; // the first thing that nothing explains; mostly empty
};

enum request_name : std::int32_t {
    start_stream,
    stop_stream,
    key_frame,
    move,
    preset,
    read_setting,
    change_setting,
    read_unknown, // a setting that nobody knows, with a command of its own each time: a barrier
};

constexpr const char* request_names[] = {"start of a stream",
                                         "stop of a stream",
                                         "key frame",
                                         "move",
                                         "preset",
                                         "read of a setting",
                                         "change of a setting",
                                         "read of an unknown setting"};

constexpr std::int64_t stall_limit = 1000000; // what a machine that keeps up never takes

} // namespace soak
