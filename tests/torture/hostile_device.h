// A device that lies, and the login that it lies to.
//
// The device is a listening socket played by the thread that tells the lies (hostile_lies.h). It
// writes down what the login must be handed nevertheless: every well-formed stream message, in
// order, with its data type, and one event for each heartbeat answer. What does not hold is told in
// words. Log level 1 or 2 is expected, so that requests have their limit.
#pragma once

#include <atomic>
#include <optional>
#include <random>

#include "live_login.h"
#include "scripted_device.h"

namespace hostile
{

using std::chrono::milliseconds;
using support::bytes;

constexpr uint32_t answer_to_ptz = 0x1032;
constexpr uint32_t heartbeat_answer = 0x1022;
constexpr uint32_t stream_message = 0x1100;
constexpr int32_t room = 1 << 20;           // for a body; a longer one is read and dropped
constexpr int32_t drained = 16 * room;      // a longer one still ends the connection
constexpr int32_t datagram_room = 65495;    // for the body of an answer that can be relayed
constexpr int32_t sender_room = 5120;       // for a request datagram
constexpr uint32_t nobodys_port = 9 * 256U; // wait_port of an answer that disturbs nobody

class dice
{
public:
    explicit dice(unsigned seed) : engine(seed)
    {
    }
    // From `least` to `most`, both included.
    int between(int least, int most)
    {
        return least + static_cast<int>(engine() % (static_cast<unsigned>(most - least) + 1));
    }
    bool one_in(int chances)
    {
        return between(1, chances) == 1;
    }
    template <class List>
    auto any_of(const List& list)
    {
        return *(list.begin() + between(0, static_cast<int>(list.size()) - 1));
    }
    uint32_t word()
    {
        return static_cast<uint32_t>(engine());
    }

private:
    std::mt19937 engine;
};

class lying_device
{
public:
    explicit lying_device(unsigned seed = 1);
    ~lying_device(); // logs out, if nobody has
    lying_device(const lying_device&) = delete;
    lying_device& operator=(const lying_device&) = delete;

    // Logs in and accepts the connection. So many connections before it are closed as soon as they
    // are there; a Login that gives up over them is no breach.
    bool log_in(int closed_first = 0);
    bool logged_in() const
    {
        return login && login->result() == ZU_SUCCESS;
    }
    // Accepts the connection that the login makes after it has lost one; so many are closed before.
    bool accept_again(int closed_first = 0);
    void refuse();       // connects are refused from here on; the connection stays
    void listen_again(); // on the same port
    void log_out();      // must succeed, in bounded time

    ZU_U32 handle() const
    {
        return login->handle();
    }
    uint16_t int_port() const; // of the login's loopback socket, host order
    int ext_sock() const;      // the login's end of the connection
    int int_sock() const;      // its loopback socket
    const support::watcher& seen() const
    {
        return login->seen;
    }

    // The message for a stream body that the login must be handed; to be sent at once.
    bytes promise(const bytes& body);
    bytes promise(const std::string& flag, size_t size);
    void send(const bytes& data); // a connection that has gone swallows it
    // Heartbeat answers, each with this length and body; an event is due for each.
    void send_heartbeats(int count, int32_t len = 0, const bytes& body = {});

    // Sends a last frame, and waits for everything promised: the stream is in step and whole.
    bool in_step();
    bool link_lost(); // the login notices
    bool link_up() const;

    void expect(bool holds, const std::string& what);
    const std::vector<std::string>& breaches() const
    {
        return wrong;
    }

    dice draw;
    support::peer link;            // the device's end
    std::string telling = "login"; // the lie, for the breaches

private:
    struct promised_block {
        ZU_U32 data_type;
        bytes body;
    };
    void accept_after(int closed_first, const std::atomic<bool>& give_up);
    void compare_what_was_handed_over();

    support::scripted_device listening;
    std::atomic<int> accepted{0}; // connections, those closed at once included
    int held_port = -1; // a socket that keeps the port from others while connects are refused
    std::vector<promised_block> promised;
    std::vector<std::string> wrong;
    ZU_U32 data_type = 0; // of the last stream message on this connection
    int connections = 0;
    int heartbeats = 0;
    int frames = 0;
    std::optional<support::live_login> login;
    bool over = false;
};

// A pause of the device's own.
void pause(milliseconds how_long);

} // namespace hostile
