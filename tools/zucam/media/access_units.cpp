// Cutting access units into NAL units. Sizes are read by libavcodec's parser.
#include "media/access_units.h"

#include "media/av.h"

#include <algorithm>

namespace tool
{

namespace
{

struct nal_unit {
    std::size_t begin; // behind the start code
    std::size_t end;
};

// The next start code (three bytes) at or behind `from`; the size when there is none.
std::size_t next_start(const byte_string& unit, std::size_t from)
{
    for (std::size_t i = from; i + 3 <= unit.size(); ++i) {
        if (unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 1) {
            return i;
        }
    }
    return unit.size();
}

std::vector<nal_unit> nal_units_of(const byte_string& unit)
{
    std::vector<nal_unit> all;
    for (std::size_t start = next_start(unit, 0); start < unit.size();) {
        const std::size_t next = next_start(unit, start + 3);
        std::size_t end = next;
        while (end > start + 3 && unit[end - 1] == 0) {
            --end; // zeros belong to the next start code
        }
        if (end > start + 3) {
            all.push_back({start + 3, end});
        }
        start = next;
    }
    return all;
}

bool is_parameter_set(std::uint8_t first, zu::Codec codec)
{
    if (codec == zu::Codec::h265) {
        const unsigned type = (first >> 1U) & 63U;
        return type >= 32 && type <= 34; // VPS, SPS, PPS
    }
    const unsigned type = first & 31U;
    return type == 7 || type == 8; // SPS, PPS
}

AVCodecID codec_id(zu::Codec codec)
{
    return codec == zu::Codec::h265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
}

} // namespace

bool operator==(const video_format& one, const video_format& other)
{
    return one.codec == other.codec && one.width == other.width && one.height == other.height &&
           one.parameter_sets == other.parameter_sets;
}

const char* name_of(zu::Codec codec)
{
    switch (codec) {
    case zu::Codec::h264:
        return "h264";
    case zu::Codec::h265:
        return "h265";
    default:
        return "unknown";
    }
}

byte_string parameter_sets_in(const byte_string& unit, zu::Codec codec)
{
    const byte_string start_code = {0, 0, 0, 1};
    byte_string sets;
    for (const nal_unit& each : nal_units_of(unit)) {
        if (is_parameter_set(unit[each.begin], codec)) {
            sets.insert(sets.end(), start_code.begin(), start_code.end());
            sets.insert(sets.end(), unit.begin() + static_cast<std::ptrdiff_t>(each.begin),
                        unit.begin() + static_cast<std::ptrdiff_t>(each.end));
        }
    }
    return sets;
}

std::optional<video_format> format_of(const byte_string& key_frame, zu::Codec codec)
{
    const av::parser parser(av_parser_init(codec_id(codec)));
    const av::codec context(avcodec_alloc_context3(avcodec_find_decoder(codec_id(codec))));
    if (!parser || !context) {
        return std::nullopt;
    }
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    byte_string padded = key_frame; // the parser reads ahead
    padded.resize(key_frame.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    std::uint8_t* out = nullptr;
    int out_size = 0;
    (void)av_parser_parse2(parser.get(), context.get(), &out, &out_size, padded.data(),
                           static_cast<int>(key_frame.size()), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    video_format format = {codec, parser->width, parser->height,
                           parameter_sets_in(key_frame, codec)};
    if (format.width <= 0 || format.height <= 0 || format.parameter_sets.empty()) {
        return std::nullopt;
    }
    return format;
}

void key_frame_completer::take_parameter_sets(const zu::Frame& frame)
{
    last_ = frame.bytes;
}

void key_frame_completer::complete(zu::Frame& key_frame) const
{
    if (parameter_sets_in(key_frame.bytes, key_frame.codec).empty()) {
        key_frame.bytes.insert(key_frame.bytes.begin(), last_.begin(), last_.end());
    }
}

} // namespace tool
