// One record with a connection to a scripted device, and as many of its workers as a test starts:
// a login without device manager, so that a worker can be looked at alone.
//
// The record stands in the table like any other (handle()), marked as used. The destructor shuts
// the link down, waits for the workers and proves that nothing is left.
#pragma once

#include <memory>

#include "log_tap.h"
#include "peer.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "sdk_user.h"
#include "seam.h"

namespace support
{

class worker_stand
{
public:
    explicit worker_stand(int log_level = 0);
    ~worker_stand();
    worker_stand(const worker_stand&) = delete;
    worker_stand& operator=(const worker_stand&) = delete;

    void start_receiver();
    void start_sender();
    bool receiver_ended(std::chrono::milliseconds deadline = long_enough) const;
    bool sender_ended(std::chrono::milliseconds deadline = long_enough) const;
    bool receiver_runs() const;
    bool sender_runs() const;

    // Shuts the link down as a Logout does, and waits for the workers.
    void end_workers();

    ZU_U32 handle() const;
    unsigned short int_port() const; // of the loopback socket, host order

private:
    void start(pthread_t* thread, bool* unjoined, void* (*main)(void*));

    inventory before; // first: what the process held before anything else

public:
    log_tap log;
    scripted_device device;
    peer link; // the device's end of the connection
    zu_sdk_user* user = nullptr;
};

struct has_stopped_clock {
    stopped_clock clock; // from before the workers start until they have ended
};

// A stand for which time passes by clock.advance alone: no heartbeat gets in between and no time
// limit is over because the machine is busy.
class still_stand : public has_stopped_clock, public worker_stand
{
public:
    explicit still_stand(int level = 0) : worker_stand(level)
    {
    }
    // Once the one worker that runs has come to its next wait, and so has done with all before.
    void let_pass(int seconds);
};

// A loopback UDP socket of the test's own, as a requester has one.
class loopback_socket
{
public:
    loopback_socket();
    // Bound to a port of the test's choosing; taken() is false when it is in use already.
    explicit loopback_socket(unsigned short port);
    ~loopback_socket();
    loopback_socket(const loopback_socket&) = delete;
    loopback_socket& operator=(const loopback_socket&) = delete;

    bool taken() const
    {
        return own_port != 0;
    }
    unsigned short port() const // host order
    {
        return own_port;
    }
    // The port as a socket address holds it, in a 32-bit word: what travels as wait_port.
    uint32_t wait_port() const;

    bool send_to(unsigned short to_port, const bytes& datagram);
    // The next datagram, also an empty one; nothing when the deadline passes first.
    std::optional<bytes> receive(std::chrono::milliseconds deadline = long_enough);
    // Where the last datagram came from, host order.
    unsigned short sender_port() const
    {
        return last_sender;
    }

private:
    int fd;
    unsigned short own_port;
    unsigned short last_sender = 0;
};

} // namespace support
