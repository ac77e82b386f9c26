// Sets libx264 up for a live camera and takes its output apart. With
// zerolatency each picture gives its access unit at once, so there is no
// queue to drain and no end to flush. Forced key frames are IDR frames, and
// SPS and PPS stand in front of each one. One thread.
#include "video_encoder.h"

#include "annexb.h"

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

[[noreturn]] void fail(const std::string& why)
{
    throw std::runtime_error("the H.264 encoder (libx264) does not work: " + why);
}

access_unit take_apart(const std::uint8_t* data, std::size_t size)
{
    access_unit unit;
    unit.annexb.assign(data, data + size);
    unit.first_slice = size;
    for (const annexb::nal& part : annexb::split(data, size)) {
        if (part.type == annexb::type_sps || part.type == annexb::type_pps) {
            unit.parameter_sets.insert(unit.parameter_sets.end(), data + part.begin,
                                       data + part.end);
        }
        if (part.type >= annexb::type_slice && part.type <= annexb::type_idr) {
            unit.first_slice = part.begin;
            break;
        }
    }
    return unit;
}

} // namespace

video_encoder::video_encoder(const stream_config& config) : coded_(av_packet_alloc())
{
    av_log_set_level(AV_LOG_QUIET);
    const AVCodec* const x264 = avcodec_find_encoder_by_name("libx264");
    if (x264 == nullptr) {
        fail("this FFmpeg was built without it");
    }
    codec_.reset(avcodec_alloc_context3(x264));
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
    codec_->rc_max_rate = codec_->bit_rate;
    codec_->rc_buffer_size = static_cast<int>(codec_->bit_rate);
    (void)av_opt_set(codec_->priv_data, "preset", "ultrafast", 0);
    (void)av_opt_set(codec_->priv_data, "tune", "zerolatency", 0);
    (void)av_opt_set(codec_->priv_data, "forced-idr", "1", 0);
    const int result = avcodec_open2(codec_.get(), nullptr, nullptr);
    if (result < 0) {
        fail(av::reason(result));
    }
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
    access_unit unit = take_apart(coded_->data, static_cast<std::size_t>(coded_->size));
    av_packet_unref(coded_.get());
    return unit;
}

} // namespace zucam
