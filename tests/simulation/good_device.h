// A device on a simulated machine that does everything right: answers each request, answers each
// heartbeat, streams numbered frames once a stream has been started, and accepts whoever connects.
// Every tenth frame is long and comes in pieces, now and then with seconds in between.
#pragma once

#include <map>

#include "machine.h"
#include "wire_bytes.h"

namespace sim
{

class good_device : public device
{
public:
    explicit good_device(machine& on, unsigned short port = 9000);

    void connected(const connection_ref& link) override;
    void received(const connection_ref& link) override;
    void ended(const connection_ref& link) override;

    void drop_links();
    void reset_links();
    void send_to_all(const std::string& bytes);
    void send_urgent_to_all();
    void greet_with(const std::string& bytes) // what is sent first on every link but the first
    {
        greeting = bytes;
    }
    void stall(bool whether);     // whether it leaves what it is sent unread
    void set_silent(bool whether) // requests are not answered, heartbeats are
    {
        silent = whether;
    }
    int requests(uint32_t type) const; // how many of a type have come, over all links
    size_t links() const
    {
        return live.size();
    }
    int links_made() const
    {
        return made;
    }
    const connection_ref& newest() const
    {
        return live.back();
    }

    micros answer_after = 1 * milliseconds;
    micros frame_every = 40 * milliseconds;

private:
    void act_on(const connection_ref& link, const support::message& request);
    void stream(const connection_ref& link);
    void send_frame(const connection_ref& link, const std::string& message);
    void send(const connection_ref& link, const std::string& message);
    void end_of_frame(const connection_ref& link, const std::string& rest);

    machine& on;
    std::vector<connection_ref> live;
    std::map<const connection*, bool> streaming;
    std::map<const connection*, std::string> behind; // what waits for the end of a frame in pieces
    std::map<uint32_t, int> seen;
    bool silent = false;
    bool stalled = false;
    std::string greeting;
    int made = 0;
    uint32_t frames = 0;
};

// The number and the filling of a frame as the good device makes it, and the check of one.
support::bytes numbered_frame(uint32_t number);
bool is_numbered_frame(const support::bytes& body, uint32_t* number);

} // namespace sim
