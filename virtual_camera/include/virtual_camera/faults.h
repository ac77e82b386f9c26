// What a virtual camera does wrong on purpose.
//
// One record that the program fills from its options and a test from its code. A camera takes it
// when it is made and may be given another one while it runs (camera::set_faults); the new record
// holds from the next message on. "After N messages" counts the messages that one link has sent,
// answers and stream data alike; a number that a link has already passed acts at once. What happens
// once per link happens once more after set_faults.
#ifndef VIRTUAL_CAMERA_FAULTS_H
#define VIRTUAL_CAMERA_FAULTS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace zucam
{

struct faults {
    // Connecting.
    bool refuse = false;      // nobody listens: a connection is refused; live links go on
    int accept_and_close = 0; // close this many connections right after accepting; -1: all
    bool silent = false;      // read and journal, never send a byte

    // Dropping a live link.
    std::optional<std::uint64_t> drop_after_messages;
    std::optional<std::chrono::milliseconds> drop_after_time; // counted from accepting
    int drop_times = -1;          // that many drops by the two above, then no more; -1: no limit
    bool drop_with_reset = false; // every close of ours is a reset; what was sent may be lost

    // Cutting what is sent into pieces.
    bool split_bytes = false;  // one send per byte
    bool header_apart = false; // header, a pause of header_gap, body
    std::chrono::milliseconds header_gap{20};

    // Answers.
    std::chrono::milliseconds answer_delay{0}; // a request is handled and answered this much later
    std::vector<std::uint32_t> never_answer;   // request types that are journalled and ignored
    std::optional<std::uint32_t> wrong_wait_port; // sent instead of the request's own

    // Messages nobody should send.
    unsigned unknown_every = 0; // one message of an unknown type before every N-th message
    std::optional<std::int32_t>
        odd_length;                     // once per link, a message whose header says this length
    std::uint64_t odd_length_after = 0; // ... after this many messages
    std::uint32_t odd_length_type = 0x1100; // ... of this type
    std::optional<std::uint64_t> oob_after; // once per link, an urgent byte after N messages
};

} // namespace zucam

#endif
