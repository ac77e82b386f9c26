// The stamp's SEI message: NAL type 6, payload type 5, a 16-byte UUID and 24 bytes of ours (words
// little-endian, like everything on this wire), with emulation prevention bytes. The reader trusts
// nothing: sizes are checked against what is there, and a message that is cut or foreign is passed
// over. No state, any thread.
#include "virtual_camera/stamp.h"

#include "annexb.h"
#include "wire.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>

namespace zucam
{

namespace
{

constexpr std::array<std::uint8_t, 16> uuid = {0x7a, 0x75, 0x63, 0x61, 0x6d, 0x2d, 0x4e, 0x1f,
                                               0x9b, 0x3c, 0x5d, 0x0e, 0x71, 0xa8, 0xc2, 0x46};
constexpr std::array<std::uint8_t, 2> h265_sei_header = {annexb::h265_prefix_sei << 1U, 1};
constexpr unsigned user_data_unregistered = 5;
constexpr std::size_t own_size = 24;
constexpr std::size_t payload_size = uuid.size() + own_size;

// Two zero bytes followed by 0 to 3 would look like a start code or an escape: 3 goes between.
wire::bytes escaped(const wire::bytes& raw)
{
    wire::bytes out;
    unsigned zeros = 0;
    for (const std::uint8_t byte : raw) {
        if (zeros >= 2 && byte <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return out;
}

wire::bytes unescaped(const std::uint8_t* data, std::size_t size)
{
    wire::bytes out;
    unsigned zeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (zeros >= 2 && data[i] == 3) {
            zeros = 0;
            continue;
        }
        out.push_back(data[i]);
        zeros = data[i] == 0 ? zeros + 1 : 0;
    }
    return out;
}

// A number as SEI headers hold it: bytes of 255 are added up with the first smaller one.
std::optional<std::size_t> take_number(const wire::bytes& rbsp, std::size_t& at)
{
    std::size_t value = 0;
    while (at < rbsp.size()) {
        const std::uint8_t byte = rbsp[at++];
        value += byte;
        if (byte != 255) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<stamp> read_payload(const std::uint8_t* payload)
{
    if (!std::equal(uuid.begin(), uuid.end(), payload)) {
        return std::nullopt;
    }
    const std::uint8_t* own = payload + uuid.size();
    return stamp{wire::get_u64(own), wire::get_u64(own + 8), wire::get_u32(own + 16),
                 wire::get_u32(own + 20)};
}

std::optional<stamp> stamp_in_sei(const wire::bytes& rbsp)
{
    std::size_t at = 0;
    while (at + 1 < rbsp.size()) {
        const auto type = take_number(rbsp, at);
        const auto size = take_number(rbsp, at);
        if (!type || !size || *size > rbsp.size() - at) {
            return std::nullopt;
        }
        if (*type == user_data_unregistered && *size == payload_size) {
            if (const auto found = read_payload(rbsp.data() + at)) {
                return found;
            }
        }
        at += *size;
    }
    return std::nullopt;
}

// 0 for a unit that is no SEI. The first byte of an H.265 SEI would be a prefix NAL unit in H.264
// and the other way round a reserved slice; neither stands in our streams.
std::size_t sei_header_size(const std::uint8_t* unit, std::size_t size)
{
    if (size >= 2 && std::equal(h265_sei_header.begin(), h265_sei_header.end(), unit)) {
        return 2;
    }
    return size >= 1 && (unit[0] & 31U) == annexb::type_sei ? 1 : 0;
}

} // namespace

std::uint64_t clock_us()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000U +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000U;
}

std::vector<std::uint8_t> stamp_nal(const stamp& value, codec_kind codec)
{
    wire::bytes rbsp;
    rbsp.push_back(user_data_unregistered);
    rbsp.push_back(payload_size);
    std::copy(uuid.begin(), uuid.end(), std::back_inserter(rbsp));
    wire::put_u64(rbsp, value.sequence);
    wire::put_u64(rbsp, value.time_us);
    wire::put_u32(rbsp, value.seed);
    wire::put_u32(rbsp, value.stream);
    rbsp.push_back(0x80); // the stop bit

    wire::bytes out = {0, 0, 0, 1};
    if (codec == codec_kind::h265) {
        out.push_back(h265_sei_header[0]);
        out.push_back(h265_sei_header[1]);
    } else {
        out.push_back(annexb::type_sei);
    }
    const wire::bytes body = escaped(rbsp);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

std::optional<stamp> find_stamp(const std::uint8_t* data, std::size_t size)
{
    for (const annexb::nal& unit : annexb::split(data, size)) {
        const std::size_t header = sei_header_size(data + unit.payload, unit.end - unit.payload);
        if (header == 0) {
            continue;
        }
        const std::size_t first = unit.payload + header;
        if (const auto found = stamp_in_sei(unescaped(data + first, unit.end - first))) {
            return found;
        }
    }
    return std::nullopt;
}

} // namespace zucam
