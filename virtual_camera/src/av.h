// Owners for what FFmpeg's libraries hand out, and their errors as text. Every object of these
// libraries in the camera lives in one of these pointers, so that a refused source or a failed
// encoder leaks nothing. The only header that brings the libraries' own types in; the public ones
// stay free of them. No state, no threads.
#ifndef ZUCAM_AV_H
#define ZUCAM_AV_H

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace zucam::av
{

struct free_frame {
    void operator()(AVFrame* frame) const
    {
        av_frame_free(&frame);
    }
};

struct free_coded {
    void operator()(AVPacket* coded) const
    {
        av_packet_free(&coded);
    }
};

struct free_codec {
    void operator()(AVCodecContext* context) const
    {
        avcodec_free_context(&context);
    }
};

struct free_graph {
    void operator()(AVFilterGraph* graph) const
    {
        avfilter_graph_free(&graph);
    }
};

struct free_ends {
    void operator()(AVFilterInOut* ends) const
    {
        avfilter_inout_free(&ends);
    }
};

struct free_scaler {
    void operator()(SwsContext* scaler) const
    {
        sws_freeContext(scaler);
    }
};

using scaler = std::unique_ptr<SwsContext, free_scaler>;
using frame = std::unique_ptr<AVFrame, free_frame>;
using coded = std::unique_ptr<AVPacket, free_coded>;
using codec = std::unique_ptr<AVCodecContext, free_codec>;
using graph = std::unique_ptr<AVFilterGraph, free_graph>;
using ends = std::unique_ptr<AVFilterInOut, free_ends>;

inline std::string reason(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    (void)av_strerror(error, text, sizeof text);
    return text;
}

} // namespace zucam::av

#endif
