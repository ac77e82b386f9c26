// Sets libx264 or libx265 up for a live camera and takes its output apart. With
// zerolatency each picture gives its access unit at once, so there is no
// queue to drain and no end to flush. Forced key frames are IDR frames, and
// SPS and PPS stand in front of each one. One thread.
#include "video_encoder.h"

#include "annexb.h"

#include <algorithm>
#include <stdexcept>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

namespace zucam
{

namespace
{

constexpr int bits_per_kbit = 1000;

enum class part_kind { parameter_set, slice, other };

part_kind kind_of(codec_kind codec, std::uint8_t header)
{
    const unsigned h265 = annexb::h265_type(header);
    const unsigned h264 = header & 31U;
    const bool is_h265 = codec == codec_kind::h265;
    if (is_h265 ? h265 >= annexb::h265_vps && h265 <= annexb::h265_pps
                : h264 == annexb::type_sps || h264 == annexb::type_pps) {
        return part_kind::parameter_set;
    }
    if (is_h265 ? h265 <= annexb::h265_last_slice
                : h264 >= annexb::type_slice && h264 <= annexb::type_idr) {
        return part_kind::slice;
    }
    return part_kind::other;
}

// With `ultrafast` the encoder would fall back to the baseline tools whatever profile is asked for,
// so the tools that make the difference are switched on by name.
struct h264_profile {
    const char* name;
    const char* tools;
};
constexpr h264_profile h264_profiles[] = {
    {"baseline", "cabac=0:8x8dct=0"}, {"main", "cabac=1:8x8dct=0"}, {"high", "cabac=1:8x8dct=1"}};

const char* library_of(codec_kind codec)
{
    return codec == codec_kind::h265 ? "libx265" : "libx264";
}

} // namespace

bool can_encode(const stream_config& config)
{
    try {
        const video_encoder tried(config);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

void try_encoders(const camera_options& options)
{
    for (unsigned stream = 0; stream < stream_count; ++stream) {
        const video_encoder tried(config_of_stream(options, stream));
    }
}

void video_encoder::fail(const std::string& why) const
{
    throw std::runtime_error(std::string("the encoder ") + library_of(kind_) +
                             " does not work: " + why);
}

access_unit video_encoder::take_apart() const
{
    const std::uint8_t* const data = coded_->data;
    const auto size = static_cast<std::size_t>(coded_->size);
    access_unit unit;
    unit.annexb.assign(data, data + size);
    unit.first_slice = size;
    for (const annexb::nal& part : annexb::split(data, size)) {
        const part_kind kind = kind_of(kind_, data[part.payload]);
        if (kind == part_kind::parameter_set) {
            unit.parameter_sets.insert(unit.parameter_sets.end(), data + part.begin,
                                       data + part.end);
        }
        if (kind == part_kind::slice) {
            unit.first_slice = part.begin;
            break;
        }
    }
    return unit;
}

video_encoder::video_encoder(const stream_config& config)
    : kind_(config.codec), coded_(av_packet_alloc())
{
    av_log_set_level(AV_LOG_QUIET);
    const AVCodec* const encoder = avcodec_find_encoder_by_name(library_of(kind_));
    if (encoder == nullptr) {
        fail("this FFmpeg was built without it");
    }
    codec_.reset(avcodec_alloc_context3(encoder));
    if (!codec_ || !coded_) {
        fail("no memory");
    }
    open(config);
}

void video_encoder::open(const stream_config& config)
{
    codec_->width = static_cast<int>(config.width);
    codec_->height = static_cast<int>(config.height);
    codec_->pix_fmt = AV_PIX_FMT_YUV420P;
    codec_->time_base = {1, static_cast<int>(config.fps)};
    codec_->framerate = {static_cast<int>(config.fps), 1};
    codec_->gop_size = static_cast<int>(config.gop);
    codec_->max_b_frames = 0;
    codec_->thread_count = 1;
    codec_->bit_rate = static_cast<std::int64_t>(config.bitrate_kbit) * bits_per_kbit;
    codec_->rc_max_rate = config.constant_rate ? codec_->bit_rate : 2 * codec_->bit_rate;
    codec_->rc_buffer_size = static_cast<int>(codec_->bit_rate);
    (void)av_opt_set(codec_->priv_data, "preset", "ultrafast", 0);
    (void)av_opt_set(codec_->priv_data, "tune", "zerolatency", 0);
    (void)av_opt_set(codec_->priv_data, "forced-idr", "1", 0);
    if (kind_ == codec_kind::h265) {
        set_up_h265(config);
    } else {
        set_up_h264(config);
    }
    const int result = avcodec_open2(codec_.get(), nullptr, nullptr);
    if (result < 0) {
        fail(av::reason(result));
    }
}

void video_encoder::set_up_h264(const stream_config& config)
{
    const h264_profile& profile = h264_profiles[config.profile];
    (void)av_opt_set(codec_->priv_data, "profile", profile.name, 0);
    (void)av_opt_set(codec_->priv_data, "x264-params", profile.tools, 0);
}

// No thread pool: the encoder works on the caller's thread and prints nothing. A coding tree unit
// must fit into the picture, and levels from 5 up, which follow from size and rates, forbid those
// of 16.
void video_encoder::set_up_h265(const stream_config& config)
{
    const bool narrow = std::min(config.width, config.height) < 32;
    const std::string parameters =
        std::string("log-level=none:pools=none:frame-threads=1:scenecut=0:open-gop=0:"
                    "repeat-headers=1:min-cu-size=8:ctu=") +
        (narrow ? "16" : "32");
    (void)av_opt_set(codec_->priv_data, "x265-params", parameters.c_str(), 0);
}

access_unit video_encoder::encode(AVFrame& picture, bool key)
{
    picture.pts = count_++;
    picture.pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    int result = avcodec_send_frame(codec_.get(), &picture);
    if (result >= 0) {
        result = avcodec_receive_packet(codec_.get(), coded_.get());
    }
    if (result < 0) {
        fail(av::reason(result));
    }
    access_unit unit = take_apart();
    av_packet_unref(coded_.get());
    return unit;
}

} // namespace zucam
