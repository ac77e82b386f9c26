// H.264 as the peers' protocols carry it: access units of any size whose headers a parser
// understands, and their packets.
//
// The filling of a slice is no picture: nobody here decodes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench
{

constexpr std::size_t largest_packet = 1448; // with what frames it on a connection

// One network abstraction layer unit without its start code.
using nal_unit = std::string;

// Parameter sets and a slice, or a slice alone, of `size` bytes in the byte stream format. `number`
// counts from the last key frame.
std::vector<nal_unit> access_unit(std::size_t size, bool key, int number);
std::string byte_stream(const std::vector<nal_unit>& units);

// The access unit as RTP packets (RFC 6184), each in the frame that RTSP puts around it on a
// connection; all but the last of a unit are as long as they may be.
std::string packets_of(const std::vector<nal_unit>& units);

// Writes the sequence numbers, from `sequence` on, and the time stamp into framed packets. Returns
// the next sequence number.
std::uint16_t stamp_packets(char* packets, std::size_t size, std::uint16_t sequence,
                            std::uint32_t time);

} // namespace bench
