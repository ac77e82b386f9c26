// What a device sends over and over: the bytes of a cycle of whole stream messages. Both sides make
// the same cycle from the same name.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench
{

// "mix": a second of a 4 Mbit/s camera at 50 frames a second, which is one key frame of 90,000
// bytes and 49 frames of 8,200 on average, with 320 bytes of sound behind each. A number: blocks of
// that many bytes, a mebibyte of them or more.
// The sizes of the camera's frames.
std::vector<std::size_t> camera_frames();

class traffic
{
public:
    explicit traffic(const std::string& name);

    const std::string& cycle() const
    {
        return bytes;
    }
    std::size_t messages() const // in a cycle
    {
        return count;
    }
    // Of the blocks alone, without headers and flags.
    std::size_t payload() const
    {
        return bytes.size() - count * 16;
    }
    std::size_t longest() const // message, its header included
    {
        return longest_message;
    }
    // How many cycles come nearest to an amount of bytes; one at least.
    std::size_t cycles_for(double amount) const;

private:
    void append_block(const std::string& block);
    void append(const std::string& flag, std::size_t block_size);

    std::string bytes;
    std::size_t count = 0;
    std::size_t longest_message = 0;
};

} // namespace bench
