// Frames: what the device sends while a stream runs, as values.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace zu
{

// All ages and times of the layer are on this clock, which no clock step touches.
using Clock = std::chrono::steady_clock;

enum class FrameKind {
    video,
    audio,
    parameter_sets, // SPS and PPS (H.265: VPS too), as the device sends them in front of a key
                    // frame
    system_header,  // StreamDescription
    raw_picture,
    other, // no known flag
};

enum class Codec { unknown, h264, h265 };

// The stream as its system header describes it.
struct StreamDescription {
    unsigned width = 0;        // pixels
    unsigned height = 0;       // pixels
    unsigned audio_format = 0; // the device's code; 0 none
    unsigned stream = 0;       // 0 to 3
    unsigned frame_rate = 0;   // a second
    unsigned bit_rate = 0;     // kbit/s
};

// A frame where the library keeps it. Valid, bytes and all, until the handler it was given to
// returns.
struct FrameView {
    FrameKind kind;
    Codec codec;               // of video and parameter sets, told from their NAL units
    bool key;                  // a video frame that a decoder can begin with
    std::uint64_t number;      // 1, 2, 3 ... as they arrive at this camera object, kinds together
    Clock::time_point arrived; // when the layer was handed it
    const std::uint8_t* data;  // behind the four characters that open a block (kind `other`: all
                               // of it); not aligned
    std::size_t size;

    // What a system header says; nothing for other kinds, and when it is too short.
    std::optional<StreamDescription> description() const;
};

// A frame of one's own.
struct Frame {
    FrameKind kind = FrameKind::other;
    Codec codec = Codec::unknown;
    bool key = false;
    std::uint64_t number = 0;
    Clock::time_point arrived;
    std::vector<std::uint8_t> bytes;

    Frame() = default;
    explicit Frame(const FrameView& view);
    FrameView view() const; // valid as long as the frame is neither changed nor moved
};

// Whether an access unit (Annex B) holds a picture that a decoder can begin with: an IDR slice of
// H.264, an IRAP slice of H.265; and which of the two it is, by its NAL unit types. An access unit
// that fits both is told by `before`, the codec of the one before.
struct AccessUnit {
    Codec codec;
    bool key;
};
AccessUnit look_at_access_unit(const std::uint8_t* data, std::size_t size,
                               Codec before = Codec::unknown);

// Called on the login's receiver thread, one call at a time, with frames in order. Until it returns
// nothing else from the device is read: no answers, no heartbeats. A request to the same camera
// from inside it fails with Errc::would_wait_for_self. It must not throw, must not destroy the
// camera, and must not wait for anything that whoever destroys it holds.
using FrameHandler = std::function<void(const FrameView&)>;

// What a full queue does with the next frame.
enum class WhenFull {
    drop_to_key, // video: drops it, and all after it up to the next key frame; what is queued
                 // stays. Sound and the like: drops it alone. docs/CLIENT.md has the details
    newest_only, // gives up all that is queued, so that the next frame taken is the newest there is
    block,       // waits for room; meanwhile nothing is read from the device, see FrameHandler
};

struct FrameQueueOptions {
    std::size_t frames = 100; // 1 or more; the latest parameter sets and system header that were
                              // set aside for a decoder come on top
    WhenFull when_full = WhenFull::drop_to_key;
};

} // namespace zu
