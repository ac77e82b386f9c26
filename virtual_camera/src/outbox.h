// What waits to be sent on one link, in order: answers and stream data.
//
// Any thread puts in, the link's thread takes out; one mutex guards everything. Stream data is
// refused above a number of bytes, so that a peer that does not read holds up nobody else. Answers
// always find room: what they cost is up to a peer that asks and does not read, until its link is
// given up.
#ifndef ZUCAM_OUTBOX_H
#define ZUCAM_OUTBOX_H

#include "wire.h"

#include <cstddef>
#include <deque>
#include <mutex>

namespace zucam
{

class outbox
{
public:
    explicit outbox(std::size_t backlog_limit);

    void put_answer(shared_message message);
    // False when there is no room.
    bool put_stream_data(unsigned stream, shared_message message);
    // Null when nothing waits.
    shared_message take();
    void discard_stream(unsigned stream);
    void discard_all();

private:
    struct entry {
        shared_message message;
        int stream; // no_stream for an answer
    };
    static constexpr int no_stream = -1;

    std::mutex mutex_;
    std::deque<entry> entries_;
    std::size_t bytes_ = 0;
    const std::size_t limit_;
};

} // namespace zucam

#endif
