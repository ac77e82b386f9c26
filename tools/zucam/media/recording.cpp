// When files begin and end, and which times frames get.
#include "media/recording.h"

#include "shared/exit_codes.h"

#include <ctime>
#include <fmt/format.h>
#include <unistd.h>

namespace tool
{

namespace
{

sound sound_of(const zu::StreamDescription& description)
{
    switch (description.audio_format) {
    case 1:
        return sound::alaw;
    case 2:
        return sound::ulaw;
    default:
        return sound::none;
    }
}

std::string time_of_day()
{
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char text[32] = {};
    (void)localtime_r(&now, &local);
    (void)std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

bool exists(const std::string& name)
{
    return access(name.c_str(), F_OK) == 0;
}

} // namespace

recording::recording(recording_options options, console& out, const stop_signals& signals,
                     file_handler on_file)
    : options_(std::move(options)), console_(out), signals_(signals), on_file_(std::move(on_file))
{
}

void recording::take(zu::Frame frame)
{
    switch (frame.kind) {
    case zu::FrameKind::system_header:
        if (const auto description = frame.view().description()) {
            describe(*description);
        }
        break;
    case zu::FrameKind::parameter_sets:
        completer_.take_parameter_sets(frame);
        break;
    case zu::FrameKind::video:
        take_video(frame);
        break;
    case zu::FrameKind::audio:
        take_audio(frame);
        break;
    default: // raw pictures and what nobody knows have no place in a file
        break;
    }
}

void recording::describe(const zu::StreamDescription& description)
{
    offered_ = sound_of(description);
    if (description.audio_format > 2) {
        tell_once("the sound is of a kind that is not known here, and is left out");
    }
}

// ---- video ----

void recording::take_video(zu::Frame& frame)
{
    has_seen_video_ = true;
    if (frame.key) {
        completer_.complete(frame);
        begin_with(frame);
    }
    if (!writer_) {
        return; // nothing is written in front of the first key frame
    }
    writer_->video(frame.bytes, frame.key, ticks_since_begin(frame.arrived));
    count(frame);
}

// A key frame that makes no sense begins nothing; in the midst of a file it does not end it either.
void recording::begin_with(const zu::Frame& key_frame)
{
    const auto video = format_of(key_frame.bytes, key_frame.codec);
    if (!video && !writer_) {
        throw failure(exit_code::protocol,
                      "the camera sent a key frame whose parameter sets make no sense");
    }
    const media_format next = {video.value_or(present_.format.video), sound_to_record()};
    if (writer_ && (!video || (still_fits(next) && !is_time_for_next(key_frame)))) {
        return;
    }
    const bool is_first = files_ == 0;
    end_file(); // whatever comes next, what it holds is whole
    if (!is_first && options_.out == "-") {
        throw failure(exit_code::output, "the video has changed, and standard output takes one "
                                         "recording only; give the name of a file");
    }
    check_fits(*options_.format, next);
    const std::string name = next_name();
    out_.emplace(name, options_.replace, signals_);
    writer_ = make_writer(*options_.format, next, *out_);
    began_ = is_first ? key_frame.arrived : began_;
    file_began_ = key_frame.arrived;
    sound_times_ = {};
    ++files_;
    present_ = recorded{name, next, 0, 0, 0, {}};
    total_.format = next;
    tell_begin();
}

void recording::tell_begin()
{
    const media_format& format = present_.format;
    console_.detail(fmt::format("recording {} {}x{} into {}", name_of(format.video.codec),
                                format.video.width, format.video.height, present_.file));
    if (options_.audio && offered_ != sound::none && format.audio == sound::none) {
        tell_once(fmt::format("the sound is left out: {} {}", options_.format->name,
                              options_.format->takes_audio(offered_)));
    }
}

// Not for each file anew, and not to whoever wants no sound.
void recording::tell_once(const std::string& about_sound)
{
    if (options_.audio && !told_about_sound_) {
        console_.say(about_sound);
    }
    told_about_sound_ = true;
}

sound recording::sound_to_record() const
{
    if (!options_.audio || offered_ == sound::none) {
        return sound::none;
    }
    return options_.format->takes_audio(offered_) == nullptr ? offered_ : sound::none;
}

// Sound that falls silent still fits; sound that begins or changes does not.
bool recording::still_fits(const media_format& next) const
{
    return present_.format.video == next.video &&
           (next.audio == sound::none || next.audio == present_.format.audio);
}

bool recording::is_time_for_next(const zu::Frame& key_frame) const
{
    return options_.segment && key_frame.arrived - file_began_ >= *options_.segment;
}

bool recording::wants_key_frame(zu::Clock::time_point now) const
{
    return writer_ && options_.segment && now - file_began_ >= *options_.segment;
}

// OUT itself, or OUT with the time in front of its ending when there may be several.
std::string recording::next_name() const
{
    if (options_.out == "-" || (files_ == 0 && !options_.segment)) {
        return options_.out;
    }
    const std::size_t slash = options_.out.rfind('/');
    const std::size_t dot = options_.out.rfind('.');
    const bool has_ending = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    const std::string ending = has_ending ? options_.out.substr(dot) : "";
    const std::string start =
        options_.out.substr(0, options_.out.size() - ending.size()) + "-" + time_of_day();
    std::string name = start + ending;
    for (int again = 2; exists(name); ++again) {
        name = fmt::format("{}-{}{}", start, again, ending);
    }
    return name;
}

std::int64_t recording::ticks_since_begin(zu::Clock::time_point time) const
{
    using ticks = std::chrono::duration<std::int64_t, std::ratio<1, ticks_per_second>>;
    return std::chrono::duration_cast<ticks>(time - file_began_).count();
}

void recording::count(const zu::Frame& frame)
{
    const auto keys = static_cast<std::uint64_t>(frame.key ? 1 : 0);
    present_.frames += 1;
    present_.key_frames += keys;
    present_.length = frame.arrived - file_began_;
    total_.frames += 1;
    total_.key_frames += keys;
    total_.length = frame.arrived - began_;
    total_.bytes += out_->size() - present_.bytes;
    present_.bytes = out_->size();
}

// ---- sound ----

void recording::take_audio(const zu::Frame& frame)
{
    const sound taken = present_.format.audio;
    if (!writer_ || taken == sound::none || offered_ != taken || frame.bytes.empty()) {
        return;
    }
    const std::int64_t arrived = ticks_since_begin(frame.arrived);
    writer_->audio(frame.bytes, sound_times_.take(frame.bytes.size(), arrived));
}

// ---- the end ----

void recording::finish()
{
    end_file();
}

void recording::end_file()
{
    if (!writer_) {
        return;
    }
    std::unique_ptr<media_writer> ending = std::move(writer_);
    ending->finish();
    ending.reset();
    total_.bytes += out_->size() - present_.bytes;
    present_.bytes = out_->size();
    out_->check();
    out_.reset();
    on_file_(present_);
}

const recorded& recording::total() const
{
    return total_;
}

bool recording::has_seen_video() const
{
    return has_seen_video_;
}

} // namespace tool
