// One recorded file: video and sound with their times, in one of the formats that there are.
//
// Times are in units of 1/90000 s from the file's first frame, and never go back. All functions
// throw as output_file::check does. Used by one thread.
#pragma once

#include "media/access_units.h"
#include "media/output_file.h"
#include "media/sound_times.h"

#include <memory>
#include <string>
#include <vector>

namespace tool
{

enum class sound { none, alaw, ulaw };

const char* name_of(sound kind); // as FFmpeg calls it

// What all of one file shares. When it changes, a new file begins.
struct media_format {
    video_format video;
    sound audio = sound::none;
};

class media_writer
{
public:
    virtual ~media_writer() = default;
    virtual void video(const byte_string& unit, bool key, std::int64_t time) = 0;
    virtual void audio(const byte_string& samples, std::int64_t time) = 0;
    virtual void finish() = 0; // nothing follows it
};

// A format of files: its name, which is also how such files end, and what it can take.
struct file_format {
    std::string name;                          // "mp4"
    std::string library;                       // libavformat's name; empty: the bare video
    zu::Codec only = zu::Codec::unknown;       // of bare video
    const char* takes_audio(sound kind) const; // nullptr, or why not: "cannot carry ..."
};

const file_format* format_named(const std::string& name);
std::string format_names(); // "mp4, mkv, ts, h264 or h265"

// Refuses video that the format cannot take, before a file is touched.
void check_fits(const file_format& how, const media_format& what);

std::unique_ptr<media_writer> make_writer(const file_format& how, const media_format& what,
                                          output_file& out);

} // namespace tool
