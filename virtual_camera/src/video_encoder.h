// H.264 by libx264 or H.265 by libx265, one access unit for every picture at once: no B frames, no
// look-ahead, one encoder thread (the caller's), parameter sets in front of every key frame. To
// change size, rate or bit rate, make another one: the first picture of an encoder is always a key
// frame. Used by one thread.
#ifndef ZUCAM_VIDEO_ENCODER_H
#define ZUCAM_VIDEO_ENCODER_H

#include "av.h"
#include "producer.h"
#include "wire.h"

#include <string>

namespace zucam
{

struct access_unit {
    wire::bytes
        parameter_sets; // SPS and PPS, with H.265 the VPS too; empty unless this is a key frame
    wire::bytes annexb; // everything, the parameter sets included
    std::size_t first_slice = 0; // where in annexb the first slice's start code begins
};

// Whether an encoder can be made for it: the library is there and takes these measures together.
bool can_encode(const stream_config& config);

class video_encoder
{
public:
    // Throws std::runtime_error with one clear line.
    explicit video_encoder(const stream_config& config);

    access_unit encode(AVFrame& picture, bool key);

private:
    void open(const stream_config& config);
    void set_up_h264(const stream_config& config);
    void set_up_h265(const stream_config& config);
    access_unit take_apart() const;
    [[noreturn]] void fail(const std::string& why) const;

    const codec_kind kind_;
    av::codec codec_;
    av::coded coded_;
    std::int64_t count_ = 0;
};

} // namespace zucam

#endif
