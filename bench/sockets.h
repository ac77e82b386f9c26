// Loopback sockets. What can't be had ends the benchmark by an exception: nothing here is expected
// to fail.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace bench
{

// Owns a descriptor.
class descriptor
{
public:
    explicit descriptor(int number = -1) : fd(number)
    {
    }
    ~descriptor();
    descriptor(descriptor&& other) noexcept;
    descriptor& operator=(descriptor&& other) noexcept;

    int get() const
    {
        return fd;
    }
    int release();

private:
    int fd;
};

descriptor listen_on_loopback(unsigned short* port);
descriptor connect_to_loopback(unsigned short port); // small writes leave at once
descriptor accept_one(const descriptor& listener);   // likewise; blocks
descriptor datagrams_on_loopback(unsigned short* port);

// Whole or not at all; false when the peer has gone.
bool send_all(int fd, const void* data, std::size_t size);
inline bool send_all(int fd, const std::string& data)
{
    return send_all(fd, data.data(), data.size());
}

// Throws with errno's text when `good` does not hold.
void demand(bool good, const std::string& what);

void allow_many_descriptors();

} // namespace bench
