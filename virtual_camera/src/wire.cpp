// Encoder and decoder of the wire. Words are taken apart and put together
// byte by byte, so nothing here depends on the host's byte order or on
// alignment. Lengths are not judged here; whoever reads a header decides
// what it accepts. No state, any thread.
#include "wire.h"

namespace zucam::wire
{

std::uint32_t request::word(std::size_t n) const
{
    const std::size_t offset = 4 * n;
    return payload.size() < offset + 4 ? 0 : get_u32(payload.data() + offset);
}

void put_u32(bytes& out, std::uint32_t value)
{
    for (unsigned shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void put_u64(bytes& out, std::uint64_t value)
{
    put_u32(out, static_cast<std::uint32_t>(value));
    put_u32(out, static_cast<std::uint32_t>(value >> 32U));
}

void put_flag(bytes& out, const char (&flag)[5])
{
    out.insert(out.end(), flag, flag + 4);
}

std::uint32_t get_u32(const std::uint8_t* at)
{
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8U |
           static_cast<std::uint32_t>(at[2]) << 16U | static_cast<std::uint32_t>(at[3]) << 24U;
}

std::uint64_t get_u64(const std::uint8_t* at)
{
    return get_u32(at) | static_cast<std::uint64_t>(get_u32(at + 4)) << 32U;
}

header read_header(const std::uint8_t* at)
{
    return {get_u32(at), static_cast<std::int32_t>(get_u32(at + 4)), get_u32(at + 8)};
}

bytes write_header(const header& value)
{
    bytes out;
    put_u32(out, value.type);
    put_u32(out, static_cast<std::uint32_t>(value.length));
    put_u32(out, value.wait_port);
    return out;
}

bytes message(std::uint32_t type, std::uint32_t wait_port, const bytes& payload)
{
    bytes out;
    out.reserve(header_size + payload.size());
    out = write_header({type, static_cast<std::int32_t>(payload.size()), wait_port});
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

bytes answer(const request& to, std::int32_t code)
{
    bytes payload;
    put_u32(payload, static_cast<std::uint32_t>(code));
    return message(answer_to(to.type), to.wait_port, payload);
}

bytes stream_message(const bytes& body)
{
    return message(stream_data, 0, body);
}

} // namespace zucam::wire
