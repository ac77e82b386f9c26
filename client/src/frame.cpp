// Frames as values. See frame.hpp. Everything here works on its arguments alone.
#include "zu/frame.hpp"

#include <cstring>

#include "zu_net_dev_api.h"

namespace zu
{

namespace
{

// A record begins with the flag, which a view has behind it.
constexpr std::size_t flag_size = sizeof(ZU_S_SysHeader::u32SysFlag);

} // namespace

std::optional<StreamDescription> FrameView::description() const
{
    if (kind != FrameKind::system_header || size < sizeof(ZU_S_SysHeader) - flag_size) {
        return {};
    }
    ZU_S_SysHeader header = {};
    std::memcpy(reinterpret_cast<char*>(&header) + flag_size, data, sizeof(header) - flag_size);
    StreamDescription out;
    out.width = header.struVHeader.u32Width;
    out.height = header.struVHeader.u32Height;
    out.audio_format = header.struAHeader.u32Format;
    out.stream = header.struSHeader.u32Stream;
    out.frame_rate = header.struSHeader.u32FrameRate;
    out.bit_rate = header.struSHeader.u32BitRate;
    return out;
}

Frame::Frame(const FrameView& view)
    : kind(view.kind), codec(view.codec), key(view.key), number(view.number), arrived(view.arrived),
      bytes(view.data, view.data + view.size)
{
}

FrameView Frame::view() const
{
    return {kind, codec, key, number, arrived, bytes.data(), bytes.size()};
}

} // namespace zu
