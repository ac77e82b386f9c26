// The messages of a real stream: per frame time one access unit with its stamp ("KTVF"), in front
// of key frames the parameter sets ("EXVC"), then the sound of the same time ("KTAF"). Lives on the
// stream's thread; picture source, window, encoder and tone are its own, and only those that a new
// configuration concerns are made anew: a film goes on when its bit rate changes. The stamp's time
// is taken when the message is made, right before it is handed to the links.
#include "picture_source.h"
#include "producer.h"
#include "scene_window.h"
#include "tone.h"
#include "video_encoder.h"

#include "virtual_camera/stamp.h"

#include <memory>

namespace zucam
{

namespace
{

constexpr unsigned lowest_tone = 440;

shared_message share(const wire::bytes& body)
{
    return std::make_shared<const wire::bytes>(wire::stream_message(body));
}

class video_producer : public producer
{
public:
    explicit video_producer(const stream_config& config)
        : config_(config), pictures_(make_pictures(config)), window_(config.width, config.height),
          encoder_(std::make_unique<video_encoder>(config)), tone_(make_tone(config))
    {
    }

    void adopt(const stream_config& config) override
    {
        if (!same_pictures(config, config_)) {
            pictures_ = make_pictures(config);
            window_ = scene_window(config.width, config.height);
        }
        if (!same_encoding(config, config_)) {
            encoder_ = std::make_unique<video_encoder>(config);
        }
        if (!same_sound(config, config_)) {
            tone_ = make_tone(config);
        }
        config_ = config;
        frames_ = 0;
        samples_ = 0;
    }

    std::vector<block> next(std::uint64_t sequence, bool key) override
    {
        AVFrame* const seen =
            window_.cut(*pictures_->next(), config_.head->look(camera_head::clock::now()));
        const access_unit unit = encoder_->encode(*seen, key);
        std::vector<block> blocks;
        const bool starts = !unit.parameter_sets.empty();
        if (starts) {
            blocks.push_back({parameter_sets(unit), true});
        }
        blocks.push_back({frame(unit, sequence), starts});
        if (config_.audio != audio_kind::none) {
            blocks.push_back({sound(), false});
        }
        return blocks;
    }

private:
    static std::unique_ptr<picture_source> make_pictures(const stream_config& config)
    {
        return std::make_unique<picture_source>(config.source, scene_side(config.width),
                                                scene_side(config.height), config.fps);
    }

    static tone make_tone(const stream_config& config)
    {
        return {config.audio, lowest_tone * (config.stream + 1), config.sample_rate, config.volume};
    }

    static shared_message parameter_sets(const access_unit& unit)
    {
        wire::bytes body;
        wire::put_flag(body, "EXVC");
        body.insert(body.end(), unit.parameter_sets.begin(), unit.parameter_sets.end());
        return share(body);
    }

    shared_message frame(const access_unit& unit, std::uint64_t sequence) const
    {
        const wire::bytes mark =
            stamp_nal({sequence, clock_us(), config_.seed, config_.stream}, config_.codec);
        const auto slices = unit.annexb.begin() + static_cast<std::ptrdiff_t>(unit.first_slice);
        wire::bytes body;
        body.reserve(4 + unit.annexb.size() + mark.size());
        wire::put_flag(body, "KTVF");
        body.insert(body.end(), unit.annexb.begin(), slices);
        body.insert(body.end(), mark.begin(), mark.end());
        body.insert(body.end(), slices, unit.annexb.end());
        return share(body);
    }

    // As many samples as bring the sound up to the end of this frame.
    shared_message sound()
    {
        ++frames_;
        const std::uint64_t wanted = frames_ * config_.sample_rate / config_.fps;
        wire::bytes body;
        wire::put_flag(body, "KTAF");
        tone_.append(body, static_cast<unsigned>(wanted - samples_));
        samples_ = wanted;
        return share(body);
    }

    stream_config config_;
    std::unique_ptr<picture_source> pictures_;
    scene_window window_;
    std::unique_ptr<video_encoder> encoder_;
    tone tone_;
    std::uint64_t frames_ = 0; // since the configuration began, like the samples
    std::uint64_t samples_ = 0;
};

} // namespace

std::unique_ptr<producer> make_video_producer(const stream_config& config)
{
    return std::make_unique<video_producer>(config);
}

} // namespace zucam
