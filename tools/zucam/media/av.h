// Owners for what FFmpeg's libraries hand out, and their errors as text. The only header that
// brings these libraries' types in. No state, no threads.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace tool::av
{

struct give_back {
    void operator()(AVFrame* frame) const
    {
        av_frame_free(&frame);
    }
    void operator()(AVPacket* unit) const
    {
        av_packet_free(&unit);
    }
    void operator()(AVCodecContext* context) const
    {
        avcodec_free_context(&context);
    }
    void operator()(AVCodecParserContext* parser) const
    {
        av_parser_close(parser);
    }
    void operator()(AVFormatContext* container) const
    {
        avformat_free_context(container);
    }
    void operator()(SwsContext* scaler) const
    {
        sws_freeContext(scaler);
    }
    void operator()(AVIOContext* stream) const
    {
        av_freep(&stream->buffer);
        avio_context_free(&stream);
    }
};

using frame = std::unique_ptr<AVFrame, give_back>;
using unit = std::unique_ptr<AVPacket, give_back>;
using codec = std::unique_ptr<AVCodecContext, give_back>;
using parser = std::unique_ptr<AVCodecParserContext, give_back>;
using container = std::unique_ptr<AVFormatContext, give_back>;
using scaler = std::unique_ptr<SwsContext, give_back>;
using stream = std::unique_ptr<AVIOContext, give_back>;

inline std::string reason(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    (void)av_strerror(error, text, sizeof text);
    return text;
}

} // namespace tool::av
