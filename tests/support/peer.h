// The device's end of one TCP connection.
//
// Its verbs block, with a deadline, on the thread that calls them. Reading belongs to one thread
// and writing to one thread at a time; close, reset and hang_up may come from any.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>

#include "eventually.h"
#include "wire_bytes.h"

namespace support
{

class peer
{
public:
    peer() = default;
    explicit peer(int socket);
    ~peer();
    peer(peer&& other) noexcept;
    peer& operator=(peer&& other) noexcept;

    // Sends all of it in one write where the system takes it; false when the connection has gone.
    bool send(const bytes& data);
    // The same in pieces of `size` bytes, each in a write of its own.
    bool send_split(const bytes& data, size_t size);
    bool send_urgent(unsigned char byte);

    // The next message; nothing when the connection ends or the deadline passes first.
    std::optional<message> read_message(std::chrono::milliseconds deadline = long_enough);
    // The next message that is no heartbeat. Heartbeats on the way are answered.
    std::optional<message> read_request(std::chrono::milliseconds deadline = long_enough);
    // The next `count` bytes, fewer when the connection ends or the deadline passes.
    bytes read_bytes(size_t count, std::chrono::milliseconds deadline = long_enough);

    // Waits until the library has ended the connection, throwing away what still comes.
    bool wait_until_closed(std::chrono::milliseconds deadline = long_enough);

    void close();   // an orderly end
    void reset();   // an abrupt one (RST)
    void hang_up(); // shuts both ways down, the descriptor stays

    bool open() const
    {
        return fd != -1;
    }
    int socket() const
    {
        return fd;
    }

private:
    std::atomic<int> fd{-1};
};

} // namespace support
