// A recording: frames in, files out.
//
// A file begins with a key frame, and a new one begins with the next key frame when its time is up
// or when what comes no longer fits (another size, codec, or sound). Frames are stamped with the
// times at which they arrived. Used by one thread; throws as output_file does.
#pragma once

#include "media/media_writer.h"
#include "shared/console.h"

#include <functional>
#include <optional>

namespace tool
{

struct recording_options {
    std::string out; // "-": standard output
    const file_format* format = nullptr;
    bool replace = false;
    bool audio = true;
    std::optional<std::chrono::milliseconds> segment; // a new file after this long
};

// What one file holds, or all of them.
struct recorded {
    std::string file;
    media_format format;
    std::uint64_t frames = 0;
    std::uint64_t key_frames = 0;
    std::uint64_t bytes = 0;
    std::chrono::duration<double> length{0};
};

class recording
{
public:
    using file_handler = std::function<void(const recorded&)>; // when a file is finished

    recording(recording_options options, console& out, const stop_signals& signals,
              file_handler on_file);

    void take(zu::Frame frame);
    // A frame of the camera says which sound comes with the video.
    void describe(const zu::StreamDescription& description);
    void finish();

    // Whether a key frame is wanted now, so that the next file may begin.
    bool wants_key_frame(zu::Clock::time_point now) const;
    const recorded& total() const; // with the file that is being written
    bool has_seen_video() const;   // a frame of it, whatever it was good for

private:
    void take_video(zu::Frame& frame);
    void take_audio(const zu::Frame& frame);
    void begin_with(const zu::Frame& key_frame);
    void tell_begin();
    void tell_once(const std::string& about_sound);
    bool is_time_for_next(const zu::Frame& key_frame) const;
    bool still_fits(const media_format& next) const;
    sound sound_to_record() const;
    std::string next_name() const;
    std::int64_t ticks_since_begin(zu::Clock::time_point time) const;
    void count(const zu::Frame& frame);
    void end_file();

    const recording_options options_;
    console& console_;
    const stop_signals& signals_;
    const file_handler on_file_;

    key_frame_completer completer_;
    sound offered_ = sound::none;
    bool told_about_sound_ = false;
    bool has_seen_video_ = false;
    std::optional<output_file> out_;
    std::unique_ptr<media_writer> writer_; // of the present file
    zu::Clock::time_point file_began_;
    zu::Clock::time_point began_;
    sound_times sound_times_; // of the present file
    unsigned files_ = 0;
    recorded present_;
    recorded total_;
};

} // namespace tool
