// The device in the tests.
//
// scripted_device only listens and hands its connections out: the test plays the device itself,
// step by step, on its own thread. serving_device answers by itself, on a thread for each
// connection, and can be told to behave otherwise while it runs.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "peer.h"

namespace support
{

class scripted_device
{
public:
    scripted_device(); // listens on 127.0.0.1, on a port that the system chooses
    ~scripted_device();
    scripted_device(const scripted_device&) = delete;
    scripted_device& operator=(const scripted_device&) = delete;

    unsigned short port() const
    {
        return listening_port;
    }

    // The next connection; a closed peer when the deadline passes first.
    peer accept(std::chrono::milliseconds deadline = long_enough);

    void refuse();       // no longer listens: connects to the port are refused
    void listen_again(); // on the same port
    void close();        // refuses for good and gives the port back

private:
    int reserved; // bound to the port, so that nobody else gets it while it refuses
    unsigned short listening_port;
    int listener;
};

// What a serving device does. Every function runs on the connection's thread.
struct behaviour {
    // A connection has been accepted. False: it is closed at once.
    std::function<bool(peer&)> on_connect = [](peer&) { return true; };
    // A message has come. The default, answers_with(0), answers every request and heartbeat.
    std::function<void(peer&, const message&)> on_message;
};

// Answers a request with a response code, a heartbeat with a heartbeat answer.
std::function<void(peer&, const message&)> answers_with(int32_t retcode);

class serving_device
{
public:
    explicit serving_device(behaviour how = {});
    ~serving_device();
    serving_device(const serving_device&) = delete;
    serving_device& operator=(const serving_device&) = delete;

    unsigned short port() const
    {
        return device.port();
    }

    void behave(behaviour how); // from the next message and connection on
    void refuse();              // no further connections; those that are there stay
    void serve_again();

    // Ends the connections that are there now.
    void drop_links();
    void reset_links();

    // Sends to every connection that is there now; how many took it.
    int send_to_all(const bytes& data);

    int connections_made() const; // since the start
    int links_open() const;
    std::vector<message> received(uint32_t type) const; // all messages of one type so far
    std::vector<message> received() const;              // all but heartbeats

private:
    struct connection {
        peer end;
        std::mutex writing;
        std::thread reader;
        std::atomic<bool> over{false};
        std::atomic<bool> ended{false}; // the reader's last act
    };

    void accept_loop();
    void clear_ended(); // under the guard
    void serve(connection& c);
    static void end(connection& c);

    scripted_device device;
    mutable std::mutex guard; // everything below
    behaviour conduct;
    std::list<std::shared_ptr<connection>> connections;
    std::vector<message> journal;
    int made = 0;
    bool refusing = false;
    std::atomic<bool> stopping{false};
    std::thread acceptor;
};

} // namespace support
