// Large reads from a connection, cut into messages where they lie. As little as a client can do:
// the reference of several groups, and how the devices read their requests.
#pragma once

#include <cstddef>
#include <memory>

#include "wire.h"

namespace bench
{

constexpr std::size_t large_read = 256 * 1024;

// Called with each whole message.
using on_message = void (*)(void* user, const head& first, unsigned char* body);

class cutter
{
public:
    // Room for the longest message or for a large read, whichever is more.
    cutter(int fd, std::size_t longest_message, on_message callback, void* user);

    // One read, and a call for each message that is whole by then. False at the end.
    bool read_once();

    // What is still missing of the message that has begun; of a header, when none has.
    std::size_t lacking() const;

    long reads() const
    {
        return reads_made;
    }

private:
    void cut();
    void close_up();

    const int fd;
    const on_message callback;
    void* const user;
    const std::size_t size;
    const std::unique_ptr<unsigned char[]> room; // untouched where nothing has come
    std::size_t begin = 0;                       // what has been read and not been cut off
    std::size_t end = 0;
    long reads_made = 0;
};

} // namespace bench
