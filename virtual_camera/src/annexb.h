// NAL units in an Annex B byte stream: where each begins and ends. The encoder's output is taken
// apart with it (parameter sets, first slice), and stamps are searched with it. It copies nothing:
// positions are offsets into the caller's bytes. No state, any thread.
#ifndef ZUCAM_ANNEXB_H
#define ZUCAM_ANNEXB_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zucam::annexb
{

constexpr unsigned type_slice = 1;
constexpr unsigned type_idr = 5;
constexpr unsigned type_sei = 6;
constexpr unsigned type_sps = 7;
constexpr unsigned type_pps = 8;

// H.265 has another header: two bytes, with the type in other bits.
constexpr unsigned h265_last_slice = 31;
constexpr unsigned h265_vps = 32;
constexpr unsigned h265_pps = 34;
constexpr unsigned h265_prefix_sei = 39;

constexpr unsigned h265_type(std::uint8_t first_header_byte)
{
    return static_cast<unsigned>(first_header_byte) >> 1U & 63U;
}

struct nal {
    std::size_t begin = 0;   // of the start code
    std::size_t payload = 0; // of the NAL unit's own header byte
    std::size_t end = 0;     // one past its last byte
};

std::vector<nal> split(const std::uint8_t* data, std::size_t size);

} // namespace zucam::annexb

#endif
