// Decodes access units with FFmpeg's H.264 or H.265 decoder, which is told to take every
// defect for an error. One access unit in, one picture out: the streams under
// test have no B frames, and the decoder holds nothing back. A defect is an
// exception, so that a test names the unit. One thread.
#pragma once

#include "camera_client.h"

#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace tools
{

struct picture_size {
    int width;
    int height;
};

class h264_decoder
{
public:
    explicit h264_decoder(AVCodecID codec = AV_CODEC_ID_H264)
        : context_(avcodec_alloc_context3(avcodec_find_decoder(codec)))
    {
        context_->thread_count = 1;
        context_->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK | AV_EF_BITSTREAM;
        context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
        if (avcodec_open2(context_, nullptr, nullptr) < 0) {
            throw std::runtime_error("no decoder");
        }
    }

    ~h264_decoder()
    {
        avcodec_free_context(&context_);
    }

    h264_decoder(const h264_decoder&) = delete;
    h264_decoder& operator=(const h264_decoder&) = delete;

    // One access unit, which must give one picture; throws when it does not.
    picture_size decode(const bytes& annexb)
    {
        bytes padded = annexb;
        padded.resize(annexb.size() + AV_INPUT_BUFFER_PADDING_SIZE);
        AVPacket* unit = av_packet_alloc();
        AVFrame* picture = av_frame_alloc();
        unit->data = padded.data();
        unit->size = static_cast<int>(annexb.size());
        int result = avcodec_send_packet(context_, unit);
        if (result >= 0) {
            result = avcodec_receive_frame(context_, picture);
        }
        const picture_size size = {picture->width, picture->height};
        const bool whole = result >= 0 && picture->decode_error_flags == 0;
        if (whole) {
            keep_luma(*picture);
        }
        av_frame_free(&picture);
        av_packet_free(&unit);
        if (!whole) {
            throw std::runtime_error("an access unit does not decode");
        }
        return size;
    }

    // The brightness of the last picture, row by row without gaps.
    const bytes& luma() const
    {
        return luma_;
    }

private:
    void keep_luma(const AVFrame& picture)
    {
        luma_.clear();
        for (int y = 0; y < picture.height; ++y) {
            const std::uint8_t* const row =
                picture.data[0] + std::ptrdiff_t{y} * picture.linesize[0];
            luma_.insert(luma_.end(), row, row + picture.width);
        }
    }

    bytes luma_;
    AVCodecContext* context_;
};

} // namespace tools
