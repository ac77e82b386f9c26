// What an access unit (Annex B) tells about the video: its parameter sets, codec and size.
#pragma once

#include "zu/frame.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace tool
{

using byte_string = std::vector<std::uint8_t>;

struct video_format {
    zu::Codec codec = zu::Codec::unknown;
    int width = 0;
    int height = 0;
    byte_string parameter_sets; // Annex B: SPS and PPS, with H.265 the VPS in front
};

bool operator==(const video_format& one, const video_format& other);

const char* name_of(zu::Codec codec);

// The parameter sets that stand in an access unit, one behind the other; empty when none do.
byte_string parameter_sets_in(const byte_string& unit, zu::Codec codec);

// The format of a key frame that has its parameter sets in it; nothing when they make no sense.
std::optional<video_format> format_of(const byte_string& key_frame, zu::Codec codec);

// Key frames as containers want them, parameter sets and all. Remembers those that came in front of
// a key frame for frames that lack them. One per stream; used by one thread.
class key_frame_completer
{
public:
    void take_parameter_sets(const zu::Frame& frame);
    // Puts the parameter sets in front of a key frame without any.
    void complete(zu::Frame& key_frame) const;

private:
    byte_string last_;
};

} // namespace tool
