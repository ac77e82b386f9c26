// Writes a link's messages to its socket, whole or as the faults want them.
//
// Used by the link's thread alone. Never blocks and never raises SIGPIPE. Without faults a message
// leaves with one send, or, when the socket's buffer is full, with as few as it takes.
#ifndef ZUCAM_MESSAGE_WRITER_H
#define ZUCAM_MESSAGE_WRITER_H

#include "active_faults.h"
#include "outbox.h"
#include "wire.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace zucam
{

class message_writer
{
public:
    using clock = std::chrono::steady_clock;

    enum class outcome {
        idle,    // everything is sent
        more,    // a message is done or a fair share of sends used up; call again
        blocked, // the socket takes nothing now
        paused,  // until resume_at()
        failed   // the connection is gone
    };

    message_writer(int socket, outbox& box);

    outcome write_some(const active_faults& active);
    std::uint64_t messages_sent() const;
    std::uint64_t bytes_sent() const;
    clock::time_point resume_at() const;

private:
    bool at_boundary() const;
    bool begin_message(const active_faults& active);
    void renew(const active_faults& active);
    void inject(const faults& wanted);
    shared_message next_message(const faults& wanted);
    outcome send_piece(const faults& wanted);
    std::size_t piece_size(const faults& wanted) const;
    void advance(std::size_t count, const faults& wanted);

    const int socket_;
    outbox& box_;
    std::deque<shared_message> injected_;
    shared_message current_;
    std::size_t offset_ = 0;
    std::uint64_t sent_ = 0;
    std::uint64_t bytes_ = 0;
    clock::time_point resume_at_{};

    // What is still due once per link, and for which generation of faults.
    std::uint64_t generation_ = 0;
    bool odd_length_due_ = false;
    bool oob_due_ = false;
    unsigned since_unknown_ = 0;
};

} // namespace zucam

#endif
