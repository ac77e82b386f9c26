// Connections to a device with the least that a client needs: the references of `scale`, `idle` and
// `login`.
#pragma once

#include <deque>
#include <thread>
#include <vector>

#include "sink.h"
#include "sockets.h"

namespace bench
{

// A thread for each connection that is blocked in a large read. With `waits_for_all` it first tells
// the system how many bytes are missing of the message, so that it wakes when they are there.
class blocked_readers
{
public:
    blocked_readers(unsigned short port, int how_many, bool waits_for_all);
    ~blocked_readers();
    blocked_readers(const blocked_readers&) = delete;
    blocked_readers& operator=(const blocked_readers&) = delete;

    long taken() const; // of all

private:
    std::deque<descriptor> links;
    std::deque<sink> sinks;
    std::vector<std::thread> threads;
};

// For each connection what has to be done while nothing happens, with waits that end in time: a
// thread that asks for its state every 30 milliseconds, one that looks every half second whether a
// heartbeat is due, which it is every third second, and one that takes the answers.
class idle_connections
{
public:
    idle_connections(unsigned short port, int how_many);
    ~idle_connections();
    idle_connections(const idle_connections&) = delete;
    idle_connections& operator=(const idle_connections&) = delete;

private:
    std::deque<descriptor> links;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
};

// A connection with as many threads as a login has: one reads, the others wait for its end.
class bare_login
{
public:
    bare_login(unsigned short port, bool streaming);
    ~bare_login();
    bare_login(const bare_login&) = delete;
    bare_login& operator=(const bare_login&) = delete;

    long taken() const
    {
        return blocks.taken();
    }

private:
    const descriptor link;
    sink blocks;
    std::vector<std::thread> threads;
};

} // namespace bench
