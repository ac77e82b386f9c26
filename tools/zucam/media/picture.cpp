// Decoder, scaler and encoder for one picture. The colours of the video are converted to those that
// the picture's format stands for: full range, and for JPEG the matrix of BT.601.
#include "media/picture.h"

#include "media/av.h"
#include "shared/exit_codes.h"

#include <cstring>

namespace tool
{

namespace
{

failure cannot(const std::string& what, int result)
{
    return {exit_code::protocol, "the video cannot be shown: " + what + ": " + av::reason(result)};
}

void require(int result, const char* what)
{
    if (result < 0) {
        throw cannot(what, result);
    }
}

av::codec open_codec(const AVCodec* codec)
{
    if (codec == nullptr) {
        throw failure(exit_code::machine, "FFmpeg's libraries lack a codec that is needed");
    }
    av::codec context(avcodec_alloc_context3(codec));
    context->thread_count = 1;
    return context;
}

// The decoder gives the picture when it is told that nothing follows.
av::frame decode(const byte_string& key_frame, zu::Codec codec)
{
    const AVCodecID id = codec == zu::Codec::h265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    const av::codec context = open_codec(avcodec_find_decoder(id));
    context->err_recognition = AV_EF_EXPLODE;
    require(avcodec_open2(context.get(), nullptr, nullptr), "decoder");
    const av::unit unit(av_packet_alloc());
    require(av_new_packet(unit.get(), static_cast<int>(key_frame.size())), "memory");
    std::memcpy(unit->data, key_frame.data(), key_frame.size());
    require(avcodec_send_packet(context.get(), unit.get()), "key frame");
    (void)avcodec_send_packet(context.get(), nullptr);
    av::frame shown(av_frame_alloc());
    require(avcodec_receive_frame(context.get(), shown.get()), "key frame");
    return shown;
}

AVPixelFormat pixels_of(picture_format format)
{
    return format == picture_format::png ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_YUV420P;
}

// The scaler decides when it is made whether ranges are converted, and goes by this format's name.
AVPixelFormat full_range_pixels_of(picture_format format)
{
    return format == picture_format::png ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_YUVJ420P;
}

void set_colours(SwsContext* scaler, const AVFrame& from)
{
    const bool told = from.colorspace != AVCOL_SPC_UNSPECIFIED;
    const int* const source = sws_getCoefficients(told ? from.colorspace : SWS_CS_DEFAULT);
    const int full = from.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    (void)sws_setColorspaceDetails(scaler, source, full, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0,
                                   1 << 16, 1 << 16);
}

av::frame converted(const AVFrame& from, picture_format format)
{
    av::frame into(av_frame_alloc());
    into->width = from.width;
    into->height = from.height;
    into->format = pixels_of(format);
    into->color_range = AVCOL_RANGE_JPEG;
    require(av_frame_get_buffer(into.get(), 0), "memory");
    const av::scaler scaler(sws_getContext(
        from.width, from.height, static_cast<AVPixelFormat>(from.format), into->width, into->height,
        full_range_pixels_of(format), SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) {
        throw cannot("its colours", AVERROR(ENOSYS));
    }
    set_colours(scaler.get(), from);
    require(sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, into->data,
                      into->linesize),
            "its colours");
    return into;
}

byte_string encode(const AVFrame& shown, picture_format format)
{
    const bool png = format == picture_format::png;
    const av::codec context =
        open_codec(avcodec_find_encoder(png ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG));
    context->width = shown.width;
    context->height = shown.height;
    context->pix_fmt = pixels_of(format);
    context->color_range = AVCOL_RANGE_JPEG;
    context->time_base = {1, 25}; // of no meaning for one picture, and asked for
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = 3 * FF_QP2LAMBDA; // of JPEG: hardly any loss
    require(avcodec_open2(context.get(), nullptr, nullptr), "encoder");
    require(avcodec_send_frame(context.get(), &shown), "picture");
    const av::unit unit(av_packet_alloc());
    require(avcodec_receive_packet(context.get(), unit.get()), "picture");
    return {unit->data, unit->data + unit->size};
}

} // namespace

picture picture_of(const byte_string& key_frame, zu::Codec codec, picture_format format)
{
    const av::frame shown = decode(key_frame, codec);
    const av::frame ready = converted(*shown, format);
    ready->quality = 3 * FF_QP2LAMBDA;
    return {shown->width, shown->height, encode(*ready, format)};
}

} // namespace tool
