// From blocks to frames. See block_reader.hpp.
#include "block_reader.hpp"

#include <cstring>

#include "zu_net_dev_api.h"

namespace zu::detail
{

namespace
{

constexpr std::size_t flag_size = 4;

FrameKind kind_of(const std::uint8_t* block, std::size_t length)
{
    if (length < flag_size) {
        return FrameKind::other;
    }
    const std::uint32_t flag = block[0] | static_cast<std::uint32_t>(block[1]) << 8U |
                               static_cast<std::uint32_t>(block[2]) << 16U |
                               static_cast<std::uint32_t>(block[3]) << 24U;
    switch (flag) {
    case ZU_NET_DEV_VIDEO_FLAG:
        return FrameKind::video;
    case ZU_NET_DEV_AUDIO_FLAG:
        return FrameKind::audio;
    case ZU_NET_DEV_KEY_FLAG:
        return FrameKind::parameter_sets;
    case ZU_NET_DEV_SYS_FLAG:
        return FrameKind::system_header;
    case ZU_NET_DEV_RAW_FLAG:
        return FrameKind::raw_picture;
    default:
        return FrameKind::other;
    }
}

} // namespace

FrameView BlockReader::read(const std::uint8_t* block, std::size_t length)
{
    FrameView view = {};
    view.arrived = Clock::now();
    view.kind = kind_of(block, length);
    const std::size_t skipped = view.kind == FrameKind::other ? 0 : flag_size;
    view.data = block + skipped;
    view.size = length - skipped;
    if (view.kind == FrameKind::video || view.kind == FrameKind::parameter_sets) {
        const AccessUnit unit = look_at_access_unit(view.data, view.size, codec_before());
        view.codec = unit.codec;
        view.key = unit.key && view.kind == FrameKind::video;
    }
    const std::lock_guard<std::mutex> lock(guard);
    view.number = ++counted.frames;
    remember(view);
    return view;
}

Codec BlockReader::codec_before() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return known;
}

// Under the guard.
void BlockReader::remember(const FrameView& view)
{
    counted.bytes += view.size;
    counted.key_frames += view.key ? 1 : 0;
    if (view.codec != Codec::unknown) {
        known = view.codec;
    }
    if (view.kind == FrameKind::video) {
        ++counted.video_frames;
        last_video = view.codec;
    } else if (view.kind == FrameKind::audio) {
        ++counted.audio_frames;
    } else if (view.kind == FrameKind::system_header) {
        known = Codec::unknown; // a stream begins anew
        if (const auto description = view.description()) {
            last_description = description;
        }
    }
}

void BlockReader::link_is_lost()
{
    const std::lock_guard<std::mutex> lock(guard);
    known = Codec::unknown;
}

std::optional<StreamDescription> BlockReader::description() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return last_description;
}

Codec BlockReader::codec() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return last_video;
}

bool BlockReader::has_seen_video() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return counted.video_frames > 0;
}

void BlockReader::count(Stats& stats) const
{
    const std::lock_guard<std::mutex> lock(guard);
    stats.frames = counted.frames;
    stats.bytes = counted.bytes;
    stats.video_frames = counted.video_frames;
    stats.key_frames = counted.key_frames;
    stats.audio_frames = counted.audio_frames;
}

} // namespace zu::detail
