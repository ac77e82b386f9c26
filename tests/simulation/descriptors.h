// The descriptors of a simulated machine: TCP sockets to devices, loopback UDP sockets, pipes.
//
// A number is never given out twice, so a call with a number that has been closed is seen for what
// it is. Such calls, a close of what somebody still waits on and a second close are complaints.
// Sockets behave as Linux's do as far as the library can tell.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "scheduler.h"

namespace sim
{

enum class kind { tcp, udp, pipe_out, pipe_in };

struct pipe_buffer {
    std::string bytes;
};

struct datagram {
    std::string bytes;
    unsigned short from; // host order
};

enum class tcp_state { fresh, connecting, refused, established, close_wait, fin_wait, closed };

struct connection;

// What stands behind a number.
struct descriptor {
    kind is;
    int number;
    int status_flags = 2; // O_RDWR
    bool close_on_exec = false;
    int waiting = 0; // threads that wait on it

    // pipes
    std::shared_ptr<pipe_buffer> pipe;
    // UDP
    unsigned short port = 0; // host order; 0: not bound
    std::deque<datagram> datagrams;
    // TCP
    tcp_state state = tcp_state::fresh;
    bool announced = false; // a connect has reported success
    std::string inbound;
    bool end_of_input = false; // the device has shut its side down
    int pending_error = 0;
    bool urgent = false; // an urgent byte is there: the exceptional condition
    size_t low_mark = 1; // fewer bytes are not worth telling
    micros send_limit = never;
    std::shared_ptr<connection> to;
    // both kinds of socket
    bool shut_for_reading = false;
    bool shut_for_writing = false;

    bool readable() const;
    bool writable() const;
    bool exceptional() const;
};
using descriptor_ref = std::shared_ptr<descriptor>;

// The device's end of a connection. What it does to the library's end takes effect at once.
struct connection {
    unsigned short port = 0;
    int number = 0;                   // the first connection of the machine is 1
    std::weak_ptr<descriptor> socket; // the library's end
    bool stalled = false;             // the device does not read: nothing more can be sent to it
    std::string request_bytes;        // what the device has been sent and not yet taken apart

    bool open() const; // the device may still send
    void send(const std::string& bytes) const;
    void send_urgent() const;
    void close() const; // orderly
    void reset() const;
};
using connection_ref = std::shared_ptr<connection>;

// A device, or anything else that listens. Called without delay by whichever thread has the baton.
class device
{
public:
    virtual ~device() = default;
    virtual void connected(const connection_ref& link) = 0;
    virtual void received(const connection_ref& link) = 0; // into request_bytes
    virtual void ended(const connection_ref&)              // the library has shut it down
    {
    }
};

// How a port answers a connect.
enum class answer_to_connect { accept, refuse, silence };

class descriptor_table
{
public:
    int open(kind is);
    int open_pipe(int (&ends)[2]);
    // The open descriptor; null, after a complaint when it has been closed before.
    descriptor_ref find(int number, const char* call);
    bool close(int number);
    size_t count() const
    {
        return open_ones.size();
    }
    std::string names() const; // of what is open
    descriptor_ref bound_to(unsigned short port) const;
    unsigned short free_port();

    std::vector<std::string> complaints;

private:
    std::map<int, descriptor_ref> open_ones;
    int next = 3;
    unsigned short next_port = 40000;
};

} // namespace sim
