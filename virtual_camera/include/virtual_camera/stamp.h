// The stamp that every access unit carries, and how to read it.
//
// A stamp is a user-data-unregistered SEI message (payload type 5) with the camera's own
// UUID, in front of the picture's first slice. From it a receiver knows which frames it missed or
// got out of order, and, on the same machine, how long a frame was under way. No state, no threads.
#ifndef VIRTUAL_CAMERA_STAMP_H
#define VIRTUAL_CAMERA_STAMP_H

#include "virtual_camera/camera.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zucam
{

struct stamp {
    std::uint64_t sequence = 0; // per stream, 0 for the stream's first access unit, no gaps
    std::uint64_t time_us = 0;  // when it was handed to the links: CLOCK_MONOTONIC, microseconds
    std::uint32_t seed = 0;     // camera_options::seed, tells cameras apart
    std::uint32_t stream = 0;   // 0 to 3
};

// The clock of stamps and journals.
std::uint64_t clock_us();

// The whole NAL unit, start code included.
std::vector<std::uint8_t> stamp_nal(const stamp& value, codec_kind codec = codec_kind::h264);

// Searches Annex B bytes (a "KTVF" body behind its flag, or a whole file's piece) for the first
// stamp. Foreign SEI messages are skipped; broken ones are no stamp.
std::optional<stamp> find_stamp(const std::uint8_t* data, std::size_t size);

} // namespace zucam

#endif
