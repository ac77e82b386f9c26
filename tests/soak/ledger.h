// What was sent on which link, and the judgement of what was not received.
//
// How a loss is told from a drop. A camera numbers the frames of its stream without a hole over
// its whole life, and a login watches the stream of one camera, so a number is sent on one link and
// on no other. The ledger notes each number with its link before its first byte goes out. TCP
// keeps the order: what a dropped link takes with it is the last of what was sent on it and never
// a piece out of the middle. So
//
//  - a number that is missing is explained when its link has ended, by a drop or by a Logout, and
//    no later number of the same link was received. A number that is missing before one that came
//    on the same link, or on a link that still lives, is lost.
//  - an answer closes the account of what was sent before it on its link: when a request has
//    returned, every one of these frames has been received, whatever becomes of the link later.
//    Reads of settings that nobody knows serve as such barriers; the command, different each time,
//    names the answer. They come all the time, so a drop can explain no more than what was sent
//    since the last of them; the most that it had to explain is printed.
//  - a link that is up may be ended by a drop or by a Logout. If the library ends one by itself,
//    that is a fault.
//  - at the end, with all streams stopped behind a barrier, the sums must agree: sent is received
//    plus lost with links.
//
// A request that failed is explained when no link was up from before it began until after it
// failed. A link is up from the start of the stream on it, which the library sends when it counts
// the link as up, to its end. A barrier that failed is not explained either when its answer was
// sent a second and more before, and a later frame of the same link was received.
//
// A request or a Login that failed while the machine stood still for a second or more is counted
// apart as excused, and so is a link that the library ended then, with what was lost on it: its
// time limits are seconds. The machine stood still when a process was woken, a camera sent a frame
// or answered a request that much late. No other lost frame is ever excused.
//
// One thread uses it, that of the relay.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "notes.h"

namespace soak
{

class ledger
{
public:
    explicit ledger(std::size_t cameras);

    // The relay's part. A link is named by the number that link_made gives.
    std::size_t link_made(std::size_t camera, std::int64_t now);
    void link_up(std::size_t link, std::int64_t now);
    void link_dropped(std::size_t link, std::int64_t now);
    void link_ended_by_library(std::size_t link, std::int64_t now);
    void stream_begins(std::size_t link);
    void stream_ends(std::size_t link);
    void request_passed(std::size_t link, std::int64_t now);
    void answer_passed(std::size_t link, std::int64_t now); // to the oldest request
    void frame_sent(std::size_t link, std::int64_t number, std::int64_t now);
    void barrier_answered(std::size_t link, std::int64_t command, std::int64_t now);
    void stalled(std::int64_t from, std::int64_t to);
    void complain(const std::string& what);

    // What the library's side tells.
    void judge(const note& told);

    counts so_far() const;

private:
    struct link_record {
        std::size_t camera;
        std::int64_t made;
        std::int64_t up = -1;
        std::int64_t ended = -1;
        bool by_library = false;
        bool explained = false; // an end by the library that a Logout accounts for
        std::int64_t last_frame = no_frame;
        std::int64_t last_sent_at = -1;      // of the frames since the stream began on it
        std::deque<std::int64_t> unanswered; // when these requests passed

        bool is_late(std::int64_t now) const; // its camera is
    };
    struct run { // of consecutive numbers on one link
        std::size_t link;
        std::int64_t first;
        std::int64_t last;
    };
    struct answer {
        std::size_t link;
        std::int64_t last_frame; // on that link, before it
        std::int64_t sent_at;
    };
    struct camera_record {
        std::vector<std::size_t> links;
        std::vector<run> runs;                            // by number
        std::unordered_map<std::int64_t, answer> answers; // to barriers, by command
    };

    void judge_gap(std::size_t camera, std::int64_t last, std::int64_t next);
    void judge_missing(std::size_t camera, const run& missing, std::size_t next_link);
    std::size_t link_of(std::size_t camera, std::int64_t number) const;
    void judge_barrier(std::size_t camera, std::int64_t command, std::int64_t last);
    void judge_missed_barrier(std::size_t camera, const note& told);
    void judge_request(const note& told);
    void judge_login(const note& told);
    void judge_logout(const note& told);
    void close_books();
    bool machine_stood_still(std::int64_t from, std::int64_t to) const;
    void complain_or_excuse(std::int64_t from, std::int64_t to, const std::string& what);

    std::vector<camera_record> cameras_;
    std::vector<link_record> links_;
    std::vector<run> stalls_; // first and last: their times
    counts counts_ = {};
    std::int64_t watched_ = 0; // time, of all streams together
};

} // namespace soak
