// A fuzzer's input, read from its front. What is asked for beyond its end is 0 or empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz
{

class input
{
public:
    input(const uint8_t* bytes, size_t count) : at(bytes), left(count)
    {
    }

    bool empty() const
    {
        return left == 0;
    }
    unsigned byte()
    {
        if (left == 0) {
            return 0;
        }
        left--;
        return *at++;
    }
    uint32_t word() // little-endian
    {
        uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            value |= static_cast<uint32_t>(byte()) << shift;
        }
        return value;
    }
    std::string text(size_t size)
    {
        const size_t count = size < left ? size : left;
        const std::string out(reinterpret_cast<const char*>(at), count);
        at += count;
        left -= count;
        return out;
    }

private:
    const uint8_t* at;
    size_t left;
};

} // namespace fuzz
