// Field by field: the five records that mean something to the camera. A record is judged whole
// before anything of it is taken, so that a refused one changes nothing. No state.
#include "setting_records.h"

#include "preset_list.h"

#include <algorithm>

namespace zucam::record
{

namespace
{

// Word numbers.
enum video_word : std::size_t {
    video_stream = 1,
    video_protocol = 2,
    video_bitrate = 3,
    video_frame = 4,
    video_iframe = 5,
    video_cbr = 6,
    video_quality = 7,
    video_width = 9,
    video_height = 10
};
enum audio_word : std::size_t {
    audio_stream = 1,
    audio_enable = 2,
    audio_type = 3,
    audio_rate = 4,
    audio_bitrate = 5,
    audio_volume = 6
};
constexpr std::size_t level_word = 0;
constexpr std::size_t qp_stream = 0;
constexpr std::size_t qp_word = 1;

constexpr std::uint32_t middle_quality = 50;
constexpr std::uint32_t usual_qp = 26;
constexpr std::uint32_t highest_qp = 51;

bool is_side(std::uint32_t value, std::uint32_t most)
{
    return within(value, 16, most) && value % 2 == 0;
}

void start_video(wire::bytes& into, const stream_config& from)
{
    set_word(into, video_stream, from.stream);
    set_word(into, video_protocol, static_cast<std::uint32_t>(from.codec));
    set_word(into, video_bitrate, from.bitrate_kbit);
    set_word(into, video_frame, from.fps);
    set_word(into, video_iframe, from.gop);
    set_word(into, video_cbr, from.constant_rate ? 1 : 0);
    set_word(into, video_quality, middle_quality);
    set_word(into, video_width, from.width);
    set_word(into, video_height, from.height);
}

void start_audio(wire::bytes& into, const stream_config& from)
{
    const bool on = from.audio != audio_kind::none;
    set_word(into, audio_stream, from.stream);
    set_word(into, audio_enable, on ? 1 : 0);
    set_word(into, audio_type, static_cast<std::uint32_t>(on ? from.audio : audio_kind::ulaw));
    set_word(into, audio_rate, from.sample_rate);
    set_word(into, audio_bitrate, from.sample_rate * 8 / 1000);
    set_word(into, audio_volume, from.volume);
}

bool video_in_range(const wire::bytes& record, const stream_config& first)
{
    return word(record, video_protocol) <= 1 &&
           within(word(record, video_bitrate), std::min(32U, first.bitrate_kbit),
                  std::max(50000U, first.bitrate_kbit)) &&
           within(word(record, video_frame), 1, std::max(120U, first.fps)) &&
           within(word(record, video_iframe), 1, std::max(10000U, first.gop)) &&
           word(record, video_cbr) <= 1 && word(record, video_quality) <= 100 &&
           is_side(word(record, video_width), std::max(1920U, first.width)) &&
           is_side(word(record, video_height), std::max(1088U, first.height));
}

bool audio_in_range(const wire::bytes& record)
{
    const std::uint32_t rate = word(record, audio_rate);
    return word(record, audio_enable) <= 1 && within(word(record, audio_type), 1, 2) &&
           (rate == 8000 || rate == 16000) && word(record, audio_volume) <= 100;
}

void apply_video(const wire::bytes& record, stream_config& to)
{
    to.codec = static_cast<codec_kind>(word(record, video_protocol));
    to.bitrate_kbit = word(record, video_bitrate);
    to.fps = word(record, video_frame);
    to.gop = word(record, video_iframe);
    to.constant_rate = word(record, video_cbr) == 1;
    to.width = word(record, video_width);
    to.height = word(record, video_height);
}

void apply_audio(const wire::bytes& record, stream_config& to)
{
    const auto kind = static_cast<audio_kind>(word(record, audio_type));
    to.audio = word(record, audio_enable) == 1 ? kind : audio_kind::none;
    to.sample_rate = word(record, audio_rate);
    to.volume = word(record, audio_volume);
}

} // namespace

std::uint32_t word(const wire::bytes& record, std::size_t index)
{
    return wire::get_u32(record.data() + 4 * index);
}

void set_word(wire::bytes& record, std::size_t index, std::uint32_t value)
{
    wire::bytes bytes;
    wire::put_u32(bytes, value);
    std::copy(bytes.begin(), bytes.end(), record.begin() + static_cast<std::ptrdiff_t>(4 * index));
}

std::uint32_t stream_of(std::uint32_t command, const wire::bytes& record)
{
    switch (command) {
    case command::video:
        return word(record, video_stream);
    case command::audio:
        return word(record, audio_stream);
    case command::idr_qp:
        return word(record, qp_stream);
    default:
        return 0;
    }
}

wire::bytes starting(std::uint32_t command, const stream_config& from)
{
    wire::bytes made(size);
    switch (command) {
    case command::video:
        start_video(made, from);
        break;
    case command::audio:
        start_audio(made, from);
        break;
    case command::encode_level:
        set_word(made, level_word, from.profile);
        break;
    case command::idr_qp:
        set_word(made, qp_stream, from.stream);
        set_word(made, qp_word, usual_qp);
        break;
    default: // no presets, and nothing else
        break;
    }
    return made;
}

bool in_range(std::uint32_t command, const wire::bytes& record, const stream_config& first)
{
    switch (command) {
    case command::video:
        return video_in_range(record, first);
    case command::audio:
        return audio_in_range(record);
    case command::encode_level:
        return word(record, level_word) <= 2;
    case command::idr_qp:
        return word(record, qp_word) <= highest_qp;
    case command::presets: {
        wire::bytes copy = record;
        return preset_list(copy).is_good();
    }
    default:
        return true;
    }
}

void apply(std::uint32_t command, const wire::bytes& record, stream_config& to)
{
    switch (command) {
    case command::video:
        return apply_video(record, to);
    case command::audio:
        return apply_audio(record, to);
    case command::encode_level:
        to.profile = word(record, level_word);
        return;
    default:
        return;
    }
}

} // namespace zucam::record
