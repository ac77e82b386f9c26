// zucam record: keeps the video of a camera, as it comes, in a file or in one after the other.
#include "commands/commands.h"
#include "media/recording.h"
#include "service_notify.h"
#include "shared/exit_codes.h"
#include "shared/frame_reader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

constexpr std::size_t queue_frames = 500; // some ten seconds while the output is slow

struct record_options {
    std::string camera;
    std::string out;
    std::string format; // empty: by the ending of OUT
    bool force = false;
    bool no_audio = false;
    std::optional<milliseconds> segment;
    stream_choice stream;
    limits limit;
};

const file_format& format_of(const record_options& options)
{
    if (!options.format.empty()) {
        const file_format* const named = format_named(options.format);
        if (named == nullptr) {
            throw bad_value("--format", options.format, format_names());
        }
        return *named;
    }
    if (options.out == "-") {
        return *format_named("mkv");
    }
    const std::size_t dot = options.out.rfind('.');
    const std::string ending = dot == std::string::npos ? "" : options.out.substr(dot + 1);
    const file_format* const named = format_named(lower_case(ending));
    if (named == nullptr) {
        throw bad_value("OUT", options.out,
                        "a name that ends with " + format_names() + ", or --format");
    }
    return *named;
}

void check(const toolbox& tools, const record_options& options)
{
    if (options.out == "-" && tools.options.manner.json) {
        throw failure(exit_code::usage, "--json and the recording cannot both go to standard "
                                        "output; give the name of a file");
    }
    if (options.out == "-" && options.segment) {
        throw failure(exit_code::usage, "standard output takes one recording only; give --segment "
                                        "with the name of a file");
    }
    if (options.segment) {
        check_output_folder(options.out);
    } else {
        check_output_name(options.out, options.force);
    }
}

std::string described(const recorded& file, const console& out)
{
    const video_format& video = file.format.video;
    const bool silent = file.format.audio == sound::none;
    return fmt::format("{}: {:.1f} s, {} frames, {:.1f} MB, {} {}x{}{}", out.shown(file.file),
                       file.length.count(), file.frames, static_cast<double>(file.bytes) / 1e6,
                       name_of(video.codec), video.width, video.height,
                       silent ? "" : std::string(", ") + name_of(file.format.audio));
}

void print_file(toolbox& tools, const recorded& file)
{
    tools.out.end_live();
    if (file.file == "-") {
        tools.out.say(described(file, tools.out));
        return;
    }
    if (!tools.out.wants_json()) {
        tools.out.data(described(file, tools.out));
        return;
    }
    const video_format& video = file.format.video;
    const bool silent = file.format.audio == sound::none;
    tools.out.data(json{{"file", tools.out.shown(file.file)},
                        {"codec", name_of(video.codec)},
                        {"width", video.width},
                        {"height", video.height},
                        {"audio", silent ? json() : json(name_of(file.format.audio))},
                        {"seconds", file.length.count()},
                        {"frames", file.frames},
                        {"key_frames", file.key_frames},
                        {"bytes", file.bytes}});
}

void show_progress(toolbox& tools, const recording& kept, const std::string& out)
{
    const recorded& so_far = kept.total();
    const double seconds = so_far.length.count();
    const double mbit = static_cast<double>(so_far.bytes) * 8 / 1e6;
    const std::string figures = fmt::format(
        "recording {:.1f} s  {} frames  {:.1f} MB  {:.2f} Mbit/s", seconds, so_far.frames,
        static_cast<double>(so_far.bytes) / 1e6, seconds > 0 ? mbit / seconds : 0);
    tools.out.live({figures + "  into " + out, figures});
}

bool is_enough(const recording& kept, const limits& limit)
{
    const recorded& so_far = kept.total();
    return (limit.count && so_far.frames >= *limit.count) ||
           (limit.seconds && so_far.length >= *limit.seconds);
}

// Asked for once for each file: the device may have to be asked to end a file in time.
class next_file_trigger
{
public:
    void look(connection& to, const recording& kept)
    {
        const bool wanted = kept.wants_key_frame(zu::Clock::now());
        if (wanted && !asked_) {
            ask_for_key_frame(to); // the next one comes sooner or later
        }
        asked_ = wanted;
    }

private:
    bool asked_ = false;
};

// Whoever runs the recording as a service learns that it goes on from what has been kept.
void keep_frame(zu::Frame frame, recording& kept, service_notify& service)
{
    const std::uint64_t before = kept.total().frames;
    kept.take(std::move(frame));
    if (kept.total().frames > before) {
        service.media_came();
    }
}

void keep(toolbox& tools, connection& to, recording& kept, const record_options& options,
          service_notify& service)
{
    frame_reader frames(tools, to);
    next_file_trigger next_file;
    const auto first_key_frame_by = zu::Clock::now() + patience_with_video(tools);
    auto shown = zu::Clock::now();
    while (!is_enough(kept, options.limit) && !tools.signals.asked_to_end()) {
        if (auto frame = frames.next()) {
            keep_frame(std::move(*frame), kept, service);
        }
        if (kept.total().frames == 0 && zu::Clock::now() > first_key_frame_by) {
            return; // video that nobody can decode comes for ever
        }
        next_file.look(to, kept);
        if (zu::Clock::now() - shown >= milliseconds(200)) {
            show_progress(tools, kept, options.out);
            shown = zu::Clock::now();
        }
    }
}

// Video that came and could not be kept is not the same as none.
void check_result(const recording& kept, const connection& to)
{
    if (kept.total().frames > 0) {
        return;
    }
    if (kept.has_seen_video()) {
        throw failure(exit_code::protocol, "the camera sends no key frame of H.264 or H.265; "
                                           "nothing was written");
    }
    throw failure(exit_code::stalled, "no video came from " + to.place().label);
}

void tell_losses(toolbox& tools, connection& to)
{
    const zu::Stats stats = to.camera().stats();
    const std::uint64_t lost = stats.dropped_queue_full + stats.dropped_awaiting_key;
    if (lost > 0) {
        tools.out.say(fmt::format("{} frames are missing: lost with the link, or more than the "
                                  "output took",
                                  lost));
    }
}

// What has been recorded is finished whatever ended the recording, but for a failed output.
void keep_and_finish(toolbox& tools, connection& to, recording& kept, const record_options& options)
{
    service_notify service;
    try {
        keep(tools, to, kept, options, service);
    } catch (const failure& failed) {
        if (failed.code() != exit_code::output) {
            kept.finish();
        }
        if (failed.code() == exit_code::stalled && kept.has_seen_video()) {
            check_result(kept, to);
        }
        throw;
    }
    service.ends();
    kept.finish();
}

void record(toolbox& tools, const record_options& options)
{
    recording_options how;
    how.out = options.out;
    how.format = &format_of(options);
    how.replace = options.force;
    how.audio = !options.no_audio;
    how.segment = options.segment;
    check(tools, options);

    zu::CameraOptions queue;
    queue.queue.frames = queue_frames;
    connection to(tools, find_camera(tools, options.camera), std::move(queue));
    recording kept(std::move(how), tools.out, tools.signals,
                   [&tools](const recorded& file) { print_file(tools, file); });
    tools.signals.finish_orderly();
    to.start_stream(options.stream);
    keep_and_finish(tools, to, kept, options);
    tools.out.end_live();
    tell_losses(tools, to);
    if (tools.signals.asked_to_end()) {
        throw interrupted();
    }
    check_result(kept, to);
}

void add_out_options(command& sub, const std::shared_ptr<record_options>& options)
{
    sub.positional("OUT", options->out,
                   "a new file, its ending tells the format: " + format_names() +
                       "; - for standard output");
    sub.option("--format", "KIND", format_names() + " [by the ending of OUT; mkv for -]",
               [options](const std::string& given) { options->format = given; });
    sub.flag("--force", options->force, "replaces OUT when it exists, once video has come");
    sub.flag("--no-audio", options->no_audio, "leaves the sound out");
    sub.option("--segment", "MINUTES",
               "a new file after so many minutes, the time in its name; each begins with a key "
               "frame",
               [options](const std::string& given) {
                   options->segment = parse_minutes("--segment", given);
               });
}

} // namespace

void add_record(command_line& line)
{
    const auto options = std::make_shared<record_options>();
    command sub =
        line.add("record", "Keeps video and sound as they come, until it is interrupted.",
                 "  zucam record door door.mp4 --seconds 60\n"
                 "  zucam record door door.mkv --segment 15     (door-20261121-160849.mkv)\n"
                 "  zucam record door - | ffplay -\n"
                 "  zucam record 192.0.2.7:9000 low.mp4 --stream 1 --force\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    add_out_options(sub, options);
    sub.seconds("--seconds", options->limit.seconds, "ends after so much video");
    sub.option("--count", "N", "ends after so many frames", [options](const std::string& given) {
        options->limit.count = static_cast<std::uint64_t>(
            parse_number("--count", given, {1, INT64_MAX, "a number of frames"}));
    });
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { record(tools, *options); });
}

} // namespace tool
