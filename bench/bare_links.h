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

    long frames() const; // of all

private:
    std::deque<descriptor> links;
    std::deque<sink> sinks;
    std::vector<std::thread> threads;
};

// A thread for each connection that asks for its state every 30 milliseconds.
class polling_threads
{
public:
    polling_threads(unsigned short port, int how_many);
    ~polling_threads();
    polling_threads(const polling_threads&) = delete;
    polling_threads& operator=(const polling_threads&) = delete;

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

    long frames() const
    {
        return blocks.taken();
    }

private:
    const descriptor link;
    sink blocks;
    std::vector<std::thread> threads;
};

} // namespace bench
