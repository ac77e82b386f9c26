// Makes a frame of each block that the C library hands over: its kind, number, codec, and whether
// it is a key frame.
//
// read runs on the receiver thread, one call at a time; the rest on any thread. The guard covers
// what is remembered from frame to frame and is not held while bytes are looked at.
#pragma once

#include <mutex>
#include <optional>

#include "zu/frame.hpp"
#include "zu/stats.hpp"

namespace zu::detail
{

class BlockReader
{
public:
    // A view of the block itself, numbered and counted.
    FrameView read(const std::uint8_t* block, std::size_t length);
    // The next connection says nothing about the codec of this one.
    void link_is_lost();

    std::optional<StreamDescription> description() const;
    Codec codec() const; // of the last video frame
    bool has_seen_video() const;
    void count(Stats& stats) const;

private:
    Codec codec_before() const;
    void remember(const FrameView& view);

    mutable std::mutex guard;
    Codec known = Codec::unknown; // what tells an access unit that fits both
    Codec last_video = Codec::unknown;
    std::optional<StreamDescription> last_description;
    Stats counted; // frames, bytes, video, key and audio frames
};

} // namespace zu::detail
