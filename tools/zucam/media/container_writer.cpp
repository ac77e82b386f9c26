// libavformat on top of output_file, so that the cause of a failed write is known, and pipes are
// written as that wants them.
//
// mp4 is fragmented: a fragment begins at each key frame and after each second, and is written
// whole. mkv has clusters of a second at most. Both are flushed unit by unit. Only an orderly end
// adds what makes seeking quick: the index of mp4, duration and cues of mkv.
#include "media/container_writer.h"

#include "shared/exit_codes.h"

#include <cstring>
#include <new>

namespace tool
{

namespace
{

constexpr int buffer_size = 1 << 16;
constexpr int sample_rate = 8000;
constexpr AVRational tick = {1, ticks_per_second};

output_file& file_of(void* opaque)
{
    return *static_cast<output_file*>(opaque);
}

// EIO stands for all: output_file knows the cause.
int write_bytes(void* opaque, std::uint8_t* data, int size)
{
    return file_of(opaque).write(data, static_cast<std::size_t>(size)) ? size : AVERROR(EIO);
}

std::int64_t seek_bytes(void* opaque, std::int64_t to, int whence)
{
    return whence == AVSEEK_SIZE ? AVERROR(ENOSYS) : file_of(opaque).seek(to, whence);
}

template <class Pointer>
Pointer* there(Pointer* made)
{
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

void copy_extradata(const byte_string& from, AVCodecParameters& into)
{
    into.extradata =
        static_cast<std::uint8_t*>(there(av_mallocz(from.size() + AV_INPUT_BUFFER_PADDING_SIZE)));
    std::memcpy(into.extradata, from.data(), from.size());
    into.extradata_size = static_cast<int>(from.size());
}

} // namespace

container_writer::container_writer(const std::string& library_format, const media_format& what,
                                   output_file& out)
    : out_(out), unit_(there(av_packet_alloc()))
{
    open(library_format);
    add_video(what.video);
    if (what.audio != sound::none) {
        add_audio(what.audio);
    }
    write_header();
}

void container_writer::open(const std::string& library_format)
{
    auto* const buffer = static_cast<std::uint8_t*>(there(av_malloc(buffer_size)));
    io_.reset(there(avio_alloc_context(buffer, buffer_size, 1, &out_, nullptr, write_bytes,
                                       out_.can_seek() ? seek_bytes : nullptr)));
    AVFormatContext* made = nullptr;
    check(avformat_alloc_output_context2(&made, nullptr, library_format.c_str(), nullptr),
          "no such container");
    container_.reset(made);
    container_->pb = io_.get();
    container_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_FLUSH_PACKETS;
    container_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED; // they begin with 0
}

void container_writer::add_video(const video_format& format)
{
    video_.stream = there(avformat_new_stream(container_.get(), nullptr));
    video_.stream->time_base = tick;
    AVCodecParameters& parameters = *video_.stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = format.codec == zu::Codec::h265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    parameters.width = format.width;
    parameters.height = format.height;
    if (format.codec == zu::Codec::h265 && std::strcmp(container_->oformat->name, "mp4") == 0) {
        parameters.codec_tag = MKTAG('h', 'v', 'c', '1'); // the one that more players know
    }
    copy_extradata(format.parameter_sets, parameters);
}

void container_writer::add_audio(sound kind)
{
    audio_.stream = there(avformat_new_stream(container_.get(), nullptr));
    audio_.stream->time_base = {1, sample_rate};
    AVCodecParameters& parameters = *audio_.stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = kind == sound::alaw ? AV_CODEC_ID_PCM_ALAW : AV_CODEC_ID_PCM_MULAW;
    parameters.sample_rate = sample_rate;
    parameters.bits_per_coded_sample = 8;
    parameters.block_align = 1;
    parameters.bit_rate = std::int64_t{sample_rate} * 8;
    av_channel_layout_default(&parameters.ch_layout, 1);
}

// Options that a container does not know stay in the dictionary.
void container_writer::write_header()
{
    AVDictionary* options = nullptr;
    (void)av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    (void)av_dict_set(&options, "frag_duration", "1000000", 0);   // microseconds
    (void)av_dict_set(&options, "cluster_time_limit", "1000", 0); // milliseconds
    const int result = avformat_write_header(container_.get(), &options);
    av_dict_free(&options);
    check(result, "the container cannot be begun");
}

void container_writer::video(const byte_string& unit, bool key, std::int64_t time)
{
    write(video_, unit, key, time);
}

void container_writer::audio(const byte_string& samples, std::int64_t time)
{
    if (audio_.stream != nullptr) {
        write(audio_, samples, true, time);
    }
}

// The time that a unit lasts is not known before the next one comes; that of the one before is as
// good a guess as any, and only the last one of a file keeps it.
void container_writer::write(track& to, const byte_string& bytes, bool key, std::int64_t time)
{
    std::int64_t now = av_rescale_q(time, tick, to.stream->time_base);
    now = now > to.last ? now : to.last + 1;
    to.gap = to.last >= 0 ? now - to.last : 0;
    to.last = now;
    check(av_new_packet(unit_.get(), static_cast<int>(bytes.size())), "no memory");
    std::memcpy(unit_->data, bytes.data(), bytes.size());
    unit_->stream_index = to.stream->index;
    unit_->pts = now;
    unit_->dts = now;
    unit_->duration = to.gap;
    unit_->flags = key ? AV_PKT_FLAG_KEY : 0;
    const int result = av_write_frame(container_.get(), unit_.get());
    av_packet_unref(unit_.get());
    check(result, "the container does not take a frame");
}

void container_writer::finish()
{
    const int result = av_write_trailer(container_.get());
    avio_flush(io_.get());
    check(result, "the container cannot be ended");
}

// A failed write shows up here or there; output_file tells it best.
void container_writer::check(int result, const char* doing) const
{
    out_.check();
    if (result < 0) {
        throw failure(exit_code::output, std::string(doing) + ": " + av::reason(result));
    }
}

} // namespace tool
