// The cameras, with the relay in front of them, as a child process, so that what the program itself
// holds is the library's. The cameras send numbered frames: 25 a second, each with its number and
// bytes that follow from the camera and the number, and no encoder.
//
// Made before any thread of the program. tell() may be called from any thread, the others belong to
// the main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <vector>

#include "notes.h"

namespace soak
{

struct camera_side_options {
    std::size_t cameras = 128;
    std::uint32_t seed = 1;
    double link_life = 15; // seconds, see relay_options
};

constexpr std::size_t frame_size = 400;

// The seed of one camera's frames.
constexpr std::uint32_t frames_seed(std::uint32_t seed, std::size_t camera)
{
    return seed * 1000 + static_cast<std::uint32_t>(camera);
}

class camera_side
{
public:
    // Throws std::runtime_error with one line when there is no such process to be had.
    explicit camera_side(const camera_side_options& options);
    ~camera_side(); // ends it
    // Ends it; false when it did not end well.
    bool end();
    camera_side(const camera_side&) = delete;
    camera_side& operator=(const camera_side&) = delete;

    std::uint16_t port(std::size_t camera) const;
    void tell(const note& what) const;
    // What has passed so far. When the process is gone, the complaint says so.
    counts ask() const;

private:
    int control_;
    pid_t process_; // -1: has ended
    std::vector<std::uint16_t> ports_;
};

} // namespace soak
