// Numbered frames: cheap stream data for tests that need many links or every byte.
//
// A body is "KTVF", the frame's number (32 bits, little-endian) and bytes that follow from the
// camera's seed and the number alone, so that a receiver can tell a lost, a mixed-up and a damaged
// frame from one another. No state, no threads.
#ifndef VIRTUAL_CAMERA_NUMBERED_H
#define VIRTUAL_CAMERA_NUMBERED_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zucam
{

constexpr std::size_t numbered_body_min = 8;

// The body of one frame, `size` bytes, flag and number included (at least numbered_body_min).
std::vector<std::uint8_t> numbered_body(std::uint32_t seed, std::uint32_t number, std::size_t size);

// The frame's number when every byte is what numbered_body makes of it, nothing otherwise.
std::optional<std::uint32_t> check_numbered_body(std::uint32_t seed, const std::uint8_t* data,
                                                 std::size_t size);

} // namespace zucam

#endif
