// Where a stream's messages come from: the encoder, or the numbered frames.
//
// A producer is made, used and destroyed by one thread, the stream's. Each call makes what belongs
// to one frame time; the stream decides when that is and who gets it.
#ifndef ZUCAM_PRODUCER_H
#define ZUCAM_PRODUCER_H

#include "virtual_camera/camera.h"
#include "wire.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zucam
{

class camera_head;

constexpr unsigned stream_count = 4;

struct stream_config {
    unsigned stream = 0;
    std::string source;
    unsigned width = 0;
    unsigned height = 0;
    unsigned fps = 25;
    unsigned bitrate_kbit = 0;
    unsigned gop = 50;
    codec_kind codec = codec_kind::h264;
    bool constant_rate = true; // otherwise short peaks of twice the bit rate are allowed
    unsigned profile = 0;      // of H.264: 0 baseline, 1 main, 2 high
    audio_kind audio = audio_kind::ulaw;
    unsigned sample_rate = 8000;
    unsigned volume = 50;              // 0 to 100
    std::shared_ptr<camera_head> head; // where the camera looks; shared by its streams
    std::optional<std::size_t> numbered_size;
    std::uint32_t seed = 0;
};

// What a producer has to make anew when it passes from one configuration to the other.
bool same_pictures(const stream_config& one, const stream_config& other);
bool same_encoding(const stream_config& one, const stream_config& other);
bool same_sound(const stream_config& one, const stream_config& other);

struct block {
    shared_message message;
    bool entry; // a viewer may begin here
};

class producer
{
public:
    virtual ~producer() = default;
    // `sequence` counts the stream's frames over the camera's life; `key` asks for a key frame.
    virtual std::vector<block> next(std::uint64_t sequence, bool key) = 0;
    // Goes on with other measures; the next frame is one that a viewer may begin at when anything
    // but the sound is different. Throws like make_producer, and is of no use after that.
    virtual void adopt(const stream_config& config) = 0;
};

// The options' part for one of the four streams.
stream_config config_of_stream(const camera_options& options, unsigned stream);

// Throws std::runtime_error with one clear line.
std::unique_ptr<producer> make_producer(const stream_config& config);
std::unique_ptr<producer> make_video_producer(const stream_config& config);

// The "FSYS" message that tells a viewer what follows.
shared_message system_header(const stream_config& config);

} // namespace zucam

#endif
