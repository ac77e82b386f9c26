// zucam snapshot: one picture of what the camera sees. It is written beside OUT and moved there, so
// that OUT is never half a picture.
#include "commands/commands.h"
#include "media/output_file.h"
#include "media/picture.h"
#include "shared/exit_codes.h"
#include "shared/frame_reader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

struct snapshot_options {
    std::string camera;
    std::string out;
    std::string format;
    bool force = false;
    stream_choice stream;
};

picture_format format_of(const snapshot_options& options)
{
    const std::size_t dot = options.out.rfind('.');
    std::string kind = options.format;
    if (kind.empty() && options.out == "-") {
        kind = "jpg";
    } else if (kind.empty() && dot != std::string::npos) {
        kind = lower_case(options.out.substr(dot + 1));
    }
    if (kind == "jpg" || kind == "jpeg") {
        return picture_format::jpeg;
    }
    if (kind == "png") {
        return picture_format::png;
    }
    throw options.format.empty()
        ? bad_value("OUT", options.out, "a name that ends with jpg or png, or --format")
        : bad_value("--format", options.format, "jpg or png");
}

// The first key frame; one that comes without being asked for is the common case.
zu::Frame next_key_frame(toolbox& tools, connection& to)
{
    frame_reader frames(tools, to);
    key_frame_completer completer;
    const auto latest = zu::Clock::now() + patience_with_video(tools);
    bool asked = false;
    while (zu::Clock::now() < latest) {
        auto frame = frames.next();
        if (frame && frame->kind == zu::FrameKind::parameter_sets) {
            completer.take_parameter_sets(*frame);
        } else if (frame && frame->kind == zu::FrameKind::video && frame->key) {
            completer.complete(*frame);
            return std::move(*frame);
        } else if (frame && frame->kind == zu::FrameKind::video && !asked) {
            ask_for_key_frame(to);
            asked = true;
        }
    }
    throw failure(exit_code::protocol, "the camera sends no key frame of H.264 or H.265");
}

bool is_ordinary(const std::string& name)
{
    struct stat state = {};
    return name != "-" && (stat(name.c_str(), &state) != 0 || S_ISREG(state.st_mode));
}

void write_whole(const std::string& name, const byte_string& bytes, const stop_signals& signals)
{
    output_file out(name, true, signals);
    (void)out.write(bytes.data(), bytes.size());
    out.check();
}

// A link stays, and what it leads to is replaced.
std::string behind_links(const std::string& name)
{
    std::error_code missing;
    const std::filesystem::path real = std::filesystem::canonical(name, missing);
    return missing ? name : real.string();
}

void write_beside(const std::string& name, const byte_string& bytes, const stop_signals& signals)
{
    const std::string beside = fmt::format("{}.{}.part", name, getpid());
    try {
        write_whole(beside, bytes, signals);
    } catch (...) {
        (void)unlink(beside.c_str());
        throw;
    }
    if (std::rename(beside.c_str(), name.c_str()) != 0) {
        const int why = errno;
        (void)unlink(beside.c_str());
        throw failure(exit_code::output,
                      fmt::format("cannot write {}: {}", name, std::strerror(why)));
    }
}

void print_result(toolbox& tools, const snapshot_options& options, const picture& shown,
                  zu::Codec codec)
{
    const std::string line =
        fmt::format("{}: {}x{}, {} kB", tools.out.shown(options.out), shown.width, shown.height,
                    (shown.bytes.size() + 999) / 1000);
    if (options.out == "-") {
        tools.out.say(line);
    } else if (tools.out.wants_json()) {
        tools.out.data(json{{"file", tools.out.shown(options.out)},
                            {"codec", name_of(codec)},
                            {"width", shown.width},
                            {"height", shown.height},
                            {"bytes", shown.bytes.size()}});
    } else {
        tools.out.data(line);
    }
}

void snapshot(toolbox& tools, const snapshot_options& options)
{
    const picture_format format = format_of(options);
    if (options.out == "-" && tools.options.manner.json) {
        throw failure(exit_code::usage, "--json and the picture cannot both go to standard output; "
                                        "give the name of a file");
    }
    check_output_name(options.out, options.force);
    connection to(tools, find_camera(tools, options.camera));
    to.start_stream(options.stream);
    const zu::Frame key_frame = next_key_frame(tools, to);
    const picture shown = picture_of(key_frame.bytes, key_frame.codec, format);
    if (is_ordinary(options.out)) {
        check_output_name(options.out, options.force); // somebody may have been quicker
        tools.signals.finish_orderly();                // so that no part of it is left behind
        write_beside(behind_links(options.out), shown.bytes, tools.signals);
    } else {
        write_whole(options.out, shown.bytes, tools.signals);
    }
    print_result(tools, options, shown, key_frame.codec);
}

} // namespace

void add_snapshot(command_line& line)
{
    const auto options = std::make_shared<snapshot_options>();
    command sub = line.add("snapshot", "Keeps one picture of what the camera sees.",
                           "  zucam snapshot door door.jpg\n"
                           "  zucam snapshot door door.png --stream 1 --force\n"
                           "  zucam snapshot door - --format png | display\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.positional("OUT", options->out, "a new file, .jpg or .png; - for standard output");
    sub.option("--format", "KIND", "jpg or png [by the ending of OUT; jpg for -]",
               [options](const std::string& given) { options->format = lower_case(given); });
    sub.flag("--force", options->force, "replaces OUT when it exists, once the picture is there");
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { snapshot(tools, *options); });
}

} // namespace tool
