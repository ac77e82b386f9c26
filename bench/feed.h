// Sends a frame 25 times a second to each of many links, each at its own moment of the 40
// milliseconds, whole or in pieces that are a little apart; with sound, if wanted, 50 times a
// second.
//
// One thread sends (run); any other may join, leave or have an answer sent.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace bench
{

// One write of a round.
struct due {
    long after_ns; // the round's begin
    std::size_t link;
    std::size_t from; // bytes of the frame
    std::size_t size; // 0: the sound
};

// What each link is sent.
struct course {
    std::string frame;
    std::size_t piece; // 0 for whole frames
    std::string sound; // may be none
};

class feed
{
public:
    // Writes into a frame what differs from one to the next: `number` counts a link's frames.
    using stamp = std::function<void(std::string& frame, long number)>;

    feed(course of_each, std::size_t links, stamp stamp_frame = {});

    // Sends an answer, to a link with a place in the round between two frames only. With `starts`
    // the link takes a place.
    void answer(int fd, const std::string& bytes, bool starts);
    void leave(int fd);

    [[noreturn]] void run();

private:
    static constexpr int no_link = -1;

    struct slot {
        int fd = no_link;
        bool begun = false; // has been sent the first piece of a frame
        long frames = 0;
        std::string answers;
    };

    slot* find(int fd);
    void send(const due& next);

    const course own;
    const stamp stamp_frame;
    const std::vector<due> round;
    std::mutex guard; // of all below, and of a descriptor while it is used
    std::condition_variable freed;
    std::vector<slot> taken;
    std::vector<std::string> frames; // each link's, stamped
};

} // namespace bench
