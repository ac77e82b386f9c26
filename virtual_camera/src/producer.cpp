// The four streams' measures, the system header and the numbered frames.
// Streams 1 to 3 follow from stream 0 by halving, with floors below which
// an encoder makes no sense. Everything here runs on the thread that asks
// for it and keeps nothing between calls.
#include "producer.h"

#include "virtual_camera/numbered.h"

#include <algorithm>

namespace zucam
{

namespace
{

constexpr unsigned smallest_side = 32;
constexpr unsigned smallest_bitrate = 32;

// Encoders want even sides.
unsigned side(unsigned full, unsigned stream)
{
    return std::max(smallest_side, (full >> stream) & ~1U);
}

class numbered_producer : public producer
{
public:
    explicit numbered_producer(const stream_config& config)
        : seed_(config.seed), size_(*config.numbered_size)
    {
    }

    std::vector<block> next(std::uint64_t sequence, bool /*key*/) override
    {
        const auto number = static_cast<std::uint32_t>(sequence);
        const wire::bytes body = numbered_body(seed_, number, size_);
        return {{std::make_shared<const wire::bytes>(wire::stream_message(body)), true}};
    }

    void adopt(const stream_config& /*config*/) override
    {
    }

private:
    const std::uint32_t seed_;
    const std::size_t size_;
};

} // namespace

bool same_pictures(const stream_config& one, const stream_config& other)
{
    return one.width == other.width && one.height == other.height && one.fps == other.fps;
}

bool same_encoding(const stream_config& one, const stream_config& other)
{
    return same_pictures(one, other) && one.codec == other.codec &&
           one.bitrate_kbit == other.bitrate_kbit && one.gop == other.gop &&
           one.constant_rate == other.constant_rate && one.profile == other.profile;
}

bool same_sound(const stream_config& one, const stream_config& other)
{
    return one.audio == other.audio && one.sample_rate == other.sample_rate &&
           one.volume == other.volume;
}

stream_config config_of_stream(const camera_options& options, unsigned stream)
{
    stream_config config;
    config.stream = stream;
    config.source = options.source;
    config.width = side(options.width, stream);
    config.height = side(options.height, stream);
    config.fps = options.fps;
    config.bitrate_kbit = std::max(smallest_bitrate, options.bitrate_kbit >> stream);
    config.gop = options.gop;
    config.codec = options.codec;
    config.audio = options.numbered_size ? audio_kind::none : options.audio;
    config.numbered_size = options.numbered_size;
    config.seed = options.seed;
    return config;
}

std::unique_ptr<producer> make_producer(const stream_config& config)
{
    if (config.numbered_size) {
        return std::make_unique<numbered_producer>(config);
    }
    return make_video_producer(config);
}

shared_message system_header(const stream_config& config)
{
    // Numbered frames have no sound, whatever a setting says.
    const audio_kind sound = config.numbered_size ? audio_kind::none : config.audio;
    wire::bytes body;
    wire::put_flag(body, "FSYS");
    wire::put_u32(body, config.width);
    wire::put_u32(body, config.height);
    wire::put_u32(body, static_cast<std::uint32_t>(sound));
    wire::put_u32(body, config.stream);
    wire::put_u32(body, config.fps);
    wire::put_u32(body, config.bitrate_kbit);
    return std::make_shared<const wire::bytes>(wire::stream_message(body));
}

} // namespace zucam
