// A virtual camera: one listening port, any number of links, four streams.
//
// Threads: one accepts and clears up, one per link reads requests and writes everything that goes
// out, one per stream while somebody watches it makes the frames. All functions may be called from
// any thread; none of them calls back. A camera holds three descriptors and two more per link.
// See docs/VIRTUAL_CAMERA.md for what it answers and sends.
#ifndef VIRTUAL_CAMERA_CAMERA_H
#define VIRTUAL_CAMERA_CAMERA_H

#include "virtual_camera/faults.h"
#include "virtual_camera/journal.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zucam
{

enum class audio_kind { none = 0, alaw = 1, ulaw = 2 }; // the values of the system header
enum class codec_kind { h264 = 0, h265 = 1 };           // the values of a video setting

struct camera_options {
    std::string listen = "127.0.0.1"; // IPv4 address
    std::uint16_t port = 0;           // 0: the system chooses, see camera::port

    // The picture. Stream 0 has this size and bit rate; streams 1 to 3 have a half, a quarter and
    // an eighth of each side, and a half, a quarter and an eighth of the bit rate.
    std::string source = "testsrc2"; // a libavfilter graph, or a file that FFmpeg can read
    unsigned width = 1280;
    unsigned height = 720;
    unsigned fps = 25;
    unsigned bitrate_kbit = 2048;
    unsigned gop = 50; // frames from one key frame to the next
    audio_kind audio = audio_kind::ulaw;
    codec_kind codec = codec_kind::h264; // to begin with; a video setting changes it

    // A pan, tilt or zoom ends by itself when no further command has come for this long: a camera
    // must not run away when its client dies.
    std::chrono::milliseconds move_limit{10000};

    // Numbered frames instead of pictures and sound: bodies of this many bytes, `fps` a second
    // (1 to 10000), no encoder.
    std::optional<std::size_t> numbered_size;

    std::uint32_t seed = 1; // of numbered frames; stands in the stamps too
    unsigned index = 0;     // stands in the journal
    faults initial_faults;
    std::shared_ptr<journal_file> journal_to;
    // What camera::journal and camera::received look through: the latest entries, of so many bytes.
    std::size_t journal_limit = 64U << 20U;

    // A peer that takes nothing for this long loses its link.
    std::chrono::milliseconds stall_limit{20000};
    // Stream data waiting for a slow peer; above it, frames are left out up to the next key frame.
    std::size_t backlog_limit = 8U << 20U;
};

struct camera_counters {
    std::uint64_t connections_total = 0; // accepted, closed-at-once ones included
    std::uint64_t connections_now = 0;   // links whose thread or descriptor still exists
    std::uint64_t messages_sent = 0;     // whole messages handed to the system
    std::uint64_t messages_dropped = 0;  // stream data left out because the peer was slow
};

class camera_core;

class camera
{
public:
    // Listens when it returns. Throws std::runtime_error with one clear line when it cannot.
    explicit camera(const camera_options& options);
    ~camera(); // stops
    camera(const camera&) = delete;
    camera& operator=(const camera&) = delete;

    std::uint16_t port() const;
    camera_counters counters() const;

    // The requests received so far, oldest first, and how many of one type (0: of any); as far as
    // camera_options::journal_limit allows.
    std::vector<journal_entry> journal() const;
    std::size_t received(std::uint32_t type) const;

    // Ends every link. Their sockets are closed when it returns; the camera goes on listening.
    void drop_links();

    // When it returns, `refuse` is in force: the port refuses, or listens, from then on.
    void set_faults(const faults& value);

    // Ends everything; the port is free when it returns. Never waits for a peer.
    void stop();

private:
    std::unique_ptr<camera_core> core_;
};

// Tries a camera's encoders: one is made and destroyed for each of its streams. Throws
// std::runtime_error with one clear line.
void try_encoders(const camera_options& options);

// Tries a picture source for one frame. Throws std::runtime_error with one clear line.
void try_source(const std::string& source, unsigned width, unsigned height, unsigned fps);

} // namespace zucam

#endif
