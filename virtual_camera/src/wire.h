// The wire as the device sees it: 12-byte headers, 32-bit little-endian words.
//
// Written from the protocol alone and on purpose not shared with the client library: a mistake on
// one side must not be mirrored by the other. No state, no threads.
#ifndef ZUCAM_WIRE_H
#define ZUCAM_WIRE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace zucam::wire
{

using bytes = std::vector<std::uint8_t>;

constexpr std::size_t header_size = 12;
constexpr std::size_t config_size =
    3140; // payload of configuration requests and of the read answer

constexpr std::uint32_t start_stream = 0x1001;
constexpr std::uint32_t stop_stream = 0x1011;
constexpr std::uint32_t heartbeat = 0x1021;
constexpr std::uint32_t pan_tilt_zoom = 0x1031;
constexpr std::uint32_t preset = 0x1041;
constexpr std::uint32_t key_frame = 0x1051;
constexpr std::uint32_t set_config = 0x1061;
constexpr std::uint32_t get_config = 0x1071;
constexpr std::uint32_t stream_data = 0x1100;
constexpr std::uint32_t unknown = 0x7a01; // no message of the protocol

// A request's answer has the next code.
constexpr std::uint32_t answer_to(std::uint32_t request)
{
    return request + 1;
}

struct header {
    std::uint32_t type = 0;
    std::int32_t length = 0; // of the payload alone
    std::uint32_t wait_port = 0;
};

struct request {
    std::uint32_t type = 0;
    std::uint32_t wait_port = 0;
    bytes payload;

    // The payload's n-th word; 0 where the payload is too short.
    std::uint32_t word(std::size_t n) const;
};

void put_u32(bytes& out, std::uint32_t value);
void put_u64(bytes& out, std::uint64_t value);
void put_flag(bytes& out, const char (&flag)[5]);
std::uint32_t get_u32(const std::uint8_t* at);
std::uint64_t get_u64(const std::uint8_t* at);

header read_header(const std::uint8_t* at);
bytes write_header(const header& value);

// A whole message, header and payload in one piece.
bytes message(std::uint32_t type, std::uint32_t wait_port, const bytes& payload);
// An answer whose payload is the one word `code`.
bytes answer(const request& to, std::int32_t code);
// A stream data message; `body` begins with its four-character flag.
bytes stream_message(const bytes& body);

} // namespace zucam::wire

namespace zucam
{

// A message that many links send at the same time.
using shared_message = std::shared_ptr<const wire::bytes>;

} // namespace zucam

#endif
