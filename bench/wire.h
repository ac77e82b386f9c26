// The device protocol as far as the benchmarks speak it themselves, apart from the library.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace bench
{

constexpr std::int32_t start_stream_request = 0x1001;
constexpr std::int32_t heartbeat_request = 0x1021;
constexpr std::int32_t key_frame_request = 0x1051;
constexpr std::int32_t stream_data = 0x1100;

struct head {
    std::int32_t type;
    std::int32_t len; // of what follows
    std::int32_t wait_port;
};
static_assert(sizeof(head) == 12, "as it travels");

inline std::string message(std::int32_t type, std::int32_t wait_port, const std::string& body)
{
    const head first = {type, static_cast<std::int32_t>(body.size()), wait_port};
    std::string out(sizeof(first), '\0');
    std::memcpy(out.data(), &first, sizeof(first));
    return out + body;
}

inline std::string words(const std::vector<std::int32_t>& values)
{
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(values[0])};
}

} // namespace bench
