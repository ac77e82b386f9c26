// mp4, mkv and ts by libavformat: stream copy, and nothing held back for long, so that a recording
// that is killed still plays.
#pragma once

#include "media/av.h"
#include "media/media_writer.h"

namespace tool
{

class container_writer : public media_writer
{
public:
    container_writer(const std::string& library_format, const media_format& what, output_file& out);
    void video(const byte_string& unit, bool key, std::int64_t time) override;
    void audio(const byte_string& samples, std::int64_t time) override;
    void finish() override;

private:
    struct track {
        AVStream* stream = nullptr;
        std::int64_t last = -1; // the time of its last unit, in the stream's own units
        std::int64_t gap = 0;   // between the last two
    };

    void open(const std::string& library_format);
    void add_video(const video_format& format);
    void add_audio(sound kind);
    void write_header();
    void write(track& to, const byte_string& bytes, bool key, std::int64_t time);
    void check(int result, const char* doing) const;

    output_file& out_;
    av::stream io_; // outlives the container, which writes to it
    av::container container_;
    av::unit unit_;
    track video_;
    track audio_;
};

} // namespace tool
