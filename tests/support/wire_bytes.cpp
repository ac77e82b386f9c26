// Messages as bytes. See wire_bytes.h.
#include "wire_bytes.h"

#include <cctype>
#include <stdexcept>

namespace support
{

bytes hex(const std::string& characters)
{
    bytes out;
    std::string digits;
    for (const char c : characters) {
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            continue;
        }
        digits += c;
        if (digits.size() == 2) {
            out.push_back(static_cast<unsigned char>(std::stoi(digits, nullptr, 16)));
            digits.clear();
        }
    }
    if (!digits.empty()) {
        throw std::invalid_argument("an odd digit in " + characters);
    }
    return out;
}

bytes text(const std::string& characters)
{
    return {characters.begin(), characters.end()};
}

bytes operator+(bytes left, const bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bytes le32(uint32_t value)
{
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}

uint32_t word_at(const bytes& data, size_t offset)
{
    return data.at(offset) | static_cast<uint32_t>(data.at(offset + 1)) << 8 |
           static_cast<uint32_t>(data.at(offset + 2)) << 16 |
           static_cast<uint32_t>(data.at(offset + 3)) << 24;
}

bytes pattern(size_t count, unsigned seed)
{
    bytes out(count);
    uint32_t state = 2654435761U * (seed + 1);
    for (auto& byte : out) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24);
    }
    return out;
}

bytes message::raw() const
{
    return make_message(type, len, wait_port, body);
}

bytes make_message(uint32_t type, uint32_t wait_port, const bytes& body)
{
    return make_message(type, static_cast<int32_t>(body.size()), wait_port, body);
}

bytes make_message(uint32_t type, int32_t len, uint32_t wait_port, const bytes& body)
{
    return le32(type) + le32(static_cast<uint32_t>(len)) + le32(wait_port) + body;
}

bytes answer(const message& request, int32_t retcode, const bytes& more)
{
    return make_message(request.type + 1, request.wait_port,
                        le32(static_cast<uint32_t>(retcode)) + more);
}

bytes stream_data(const std::string& flag, const bytes& payload)
{
    return make_message(0x1100, 0, text(flag) + payload);
}

} // namespace support
