// One connection of the camera, with the one thread that reads from it and writes to it.
//
// The thread owns the socket: nobody else touches it, so messages never mix. Other threads put
// messages into the outbox or ask for the end, and wake the thread through an event descriptor.
// What the link cannot know is asked of its owner, the camera, always on the link's own thread.
#ifndef ZUCAM_LINK_H
#define ZUCAM_LINK_H

#include "active_faults.h"
#include "message_writer.h"
#include "outbox.h"
#include "waker.h"
#include "wire.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <thread>

namespace zucam
{

class link;

// Counted by all links of a camera together.
struct link_totals {
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> dropped{0};
};

class link_owner
{
public:
    virtual ~link_owner() = default;
    virtual std::shared_ptr<const active_faults> current_faults() = 0;
    virtual void received(link& from, const wire::request& what) = 0; // at once
    virtual void malformed(link& from, const wire::header& what) = 0;
    virtual void handle(link& from, const wire::request& what) = 0; // after the answer's delay
    virtual void ended(link& from) = 0; // the socket is closed; the last thing a link does
};

struct link_limits {
    std::size_t backlog;
    std::chrono::milliseconds stall;
};

class link
{
public:
    // Throws std::runtime_error when no descriptor is to be had; the socket is still the caller's
    // then.
    link(int socket, std::uint64_t number, const link_limits& limits, link_owner& owner,
         link_totals& totals);
    ~link(); // asks for the end and waits for it
    link(const link&) = delete;
    link& operator=(const link&) = delete;

    // Starts the thread; once. Throws std::system_error when there is none.
    void begin();

    std::uint64_t number() const;
    bool has_ended() const;

    // Any thread.
    void send_answer(wire::bytes message);
    bool send_stream_data(unsigned stream, shared_message message);
    void discard_stream(unsigned stream);
    void count_dropped();
    void ask_end();
    void wake() const;

private:
    using clock = std::chrono::steady_clock;
    struct delayed {
        clock::time_point due;
        wire::request what;
    };

    void run();
    void serve();
    bool step();
    bool wait_for_work();
    int wait_limit_ms() const;
    bool read_requests();
    bool take_requests();
    bool handle_due_requests();
    bool write_messages();
    bool still_moving();
    bool drop_is_due();
    void close_socket();

    const std::uint64_t number_;
    const link_limits limits_;
    link_owner& owner_;
    link_totals& totals_;
    const waker waker_;
    std::atomic<bool> end_asked_{false};
    std::atomic<bool> ended_{false};
    outbox outbox_;

    // Of the link's thread.
    int socket_;
    message_writer writer_;
    message_writer::outcome last_outcome_ = message_writer::outcome::idle;
    const clock::time_point began_ = clock::now();
    clock::time_point looked_at_ = began_; // for a drop
    clock::time_point progress_at_ = began_;
    std::uint64_t progress_bytes_ = 0;
    bool readable_ = false;
    std::shared_ptr<const active_faults> faults_;
    wire::bytes input_;
    std::deque<delayed> waiting_;

    std::thread thread_; // last: it uses all of the above
};

} // namespace zucam

#endif
