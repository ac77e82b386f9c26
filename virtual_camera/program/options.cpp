// Options of zucam-sim: what they are called, what they mean, what they may be. Texts are taken as
// strings and parsed by our own parsers, so that every wrong value gets one line of the same shape.
// What depends on several options, the encoders and the source are judged at the end. Runs before
// any thread does.
#include "options.h"

#include "option_values.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>

namespace zucam
{

namespace
{

constexpr std::int64_t million = 1000000;

// Adds options to one group of the help text.
class option_group
{
public:
    option_group(CLI::App& app, std::string name) : app_(app), name_(std::move(name))
    {
    }

    CLI::Option* text(const std::string& option, const std::string& shape,
                      const std::string& description,
                      const std::function<void(const std::string&)>& take)
    {
        return app_.add_option_function<std::string>(option, take, description)
            ->type_name(shape)
            ->group(name_);
    }

    template <typename Number>
    void number(const std::string& option, const std::string& shape, Number& into,
                const number_range& range, const std::string& description)
    {
        text(option, shape, description, [&into, option, range](const std::string& given) {
            into = static_cast<Number>(parse_number(option, given, range));
        });
    }

    void flag(const std::string& option, bool& into, const std::string& description)
    {
        app_.add_flag_callback(
                option, [&into] { into = true; }, description)
            ->group(name_);
    }

private:
    CLI::App& app_;
    const std::string name_;
};

audio_kind parse_audio(const std::string& text)
{
    if (text == "ulaw") {
        return audio_kind::ulaw;
    }
    if (text == "alaw") {
        return audio_kind::alaw;
    }
    if (text == "off") {
        return audio_kind::none;
    }
    throw bad_value("--audio", text, "ulaw, alaw or off");
}

codec_kind parse_codec(const std::string& text)
{
    if (text == "h264") {
        return codec_kind::h264;
    }
    if (text == "h265") {
        return codec_kind::h265;
    }
    throw bad_value("--codec", text, "h264 or h265");
}

void add_port_options(CLI::App& app, program_options& into)
{
    option_group group(app, "Where it listens");
    group.text("--listen", "ADDRESS", "IPv4 address to listen on [127.0.0.1]",
               [&into](const std::string& given) { into.camera.listen = given; });
    group.number("--port", "PORT", into.camera.port, {0, 65535, "a port (0 = any free one)"},
                 "TCP port; 0 lets the system choose; with --cameras the first of several [0]");
    group.number("--cameras", "N", into.cameras, {1, 256, "a number of cameras"},
                 "this many cameras, each with a port of its own [1]");
    group.text("--journal", "FILE", "add what is received to FILE, one JSON object a line",
               [&into](const std::string& given) { into.journal_path = given; });
}

void add_size_option(option_group& group, camera_options& into)
{
    group.text("--size", "WxH",
               "size of stream 0; streams 1 to 3 have a half, a quarter and an eighth of each "
               "side [1280x720]",
               [&into](const std::string& given) {
                   const auto sides = parse_size("--size", given);
                   into.width = sides.first;
                   into.height = sides.second;
               });
}

void add_picture_options(CLI::App& app, camera_options& into)
{
    option_group group(app, "What it shows");
    group.text("--source", "GRAPH|FILE",
               "libavfilter graph or a file that FFmpeg can read [testsrc2]",
               [&into](const std::string& given) { into.source = given; });
    add_size_option(group, into);
    group.number("--fps", "N", into.fps, {1, 10000, "frames a second (above 120 with --numbered)"},
                 "frames a second [25]");
    group.number("--bitrate", "KBIT", into.bitrate_kbit, {32, 50000, "kbit/s"},
                 "bit rate of stream 0 in kbit/s; each further stream has half of the one before "
                 "[2048]");
    group.number("--gop", "N", into.gop, {1, 10000, "frames from key frame to key frame"},
                 "frames from one key frame to the next [2 s of them]");
    group.text("--audio", "KIND", "G.711 sound: ulaw, alaw or off [ulaw]",
               [&into](const std::string& given) { into.audio = parse_audio(given); });
    group.text("--codec", "KIND", "video to begin with: h264 or h265 [h264]",
               [&into](const std::string& given) { into.codec = parse_codec(given); });
    group.text(
        "--move-limit", "SECONDS", "a pan, tilt or zoom ends this long after its command [10]",
        [&into](const std::string& given) {
            into.move_limit = std::chrono::milliseconds(parse_seconds("--move-limit", given));
        });
    group.text("--numbered", "BYTES",
               "numbered frames of this size instead of pictures and sound; no encoder runs",
               [&into](const std::string& given) {
                   into.numbered_size = static_cast<std::size_t>(
                       parse_number("--numbered", given, {8, 16 * million, "bytes of a frame"}));
               });
    group.number(
        "--seed", "N", into.seed, {0, UINT32_MAX, "a number"},
        "stands in stamps and makes numbered frames; one more for each further camera [1]");
}

void add_drop_options(option_group& group, faults& into)
{
    group.flag("--refuse", into.refuse, "refuse every connection");
    group.number("--accept-and-close", "N", into.accept_and_close,
                 {-1, million, "a number of connections (-1 = all)"},
                 "close the first N connections right after accepting (-1 = all)");
    group.flag("--silent", into.silent, "read requests, never send a byte");
    group.text("--drop-after-messages", "N", "drop each link after N sent messages",
               [&into](const std::string& given) {
                   into.drop_after_messages = static_cast<std::uint64_t>(parse_number(
                       "--drop-after-messages", given, {1, 1000 * million, "messages"}));
               });
    group.text("--drop-after", "SECONDS", "drop each link this long after accepting it",
               [&into](const std::string& given) {
                   into.drop_after_time =
                       std::chrono::milliseconds(parse_seconds("--drop-after", given));
               });
    group.number("--drop-times", "N", into.drop_times,
                 {-1, million, "a number of drops (-1 = no limit)"},
                 "the two above drop N links in all, then no more [-1: no limit]");
    group.flag("--drop-with-reset", into.drop_with_reset,
               "links end by a reset instead of an ordinary end");
}

void add_message_options(option_group& group, faults& into)
{
    group.flag("--split", into.split_bytes, "send every byte by itself");
    group.flag("--header-apart", into.header_apart, "send header and body 20 ms apart");
    group.text("--delay-answers", "MS", "handle and answer each request MS milliseconds later",
               [&into](const std::string& given) {
                   into.answer_delay = std::chrono::milliseconds(
                       parse_number("--delay-answers", given, {0, million, "milliseconds"}));
               });
    group
        .text("--never-answer", "TYPE",
              "ignore requests of this type: start, stop, heartbeat, "
              "ptz, preset, keyframe, setconfig, getconfig or a code; may be repeated",
              [&into](const std::string& given) {
                  into.never_answer.push_back(parse_request_type("--never-answer", given));
              })
        ->trigger_on_parse();
    group.text("--wrong-wait-port", "N", "answer with this wait_port instead of the request's",
               [&into](const std::string& given) {
                   into.wrong_wait_port = static_cast<std::uint32_t>(
                       parse_number("--wrong-wait-port", given, {0, UINT32_MAX, "a number"}));
               });
}

void add_odd_options(option_group& group, faults& into)
{
    group.number("--unknown-every", "N", into.unknown_every, {0, million, "messages (0 = never)"},
                 "one message of an unknown type before every N-th message");
    group.text("--odd-length", "LENGTH",
               "once per link, a message whose header says LENGTH: "
               "negative, or larger than a receiver takes (with its body up to 16 MiB)",
               [&into](const std::string& given) {
                   into.odd_length = static_cast<std::int32_t>(
                       parse_number("--odd-length", given, {INT32_MIN, INT32_MAX, "bytes"}));
               });
    group.number("--odd-length-after", "N", into.odd_length_after, {0, 1000 * million, "messages"},
                 "the one above after N messages [0]");
    group.text("--oob-after", "N", "once per link, an urgent (out-of-band) byte after N messages",
               [&into](const std::string& given) {
                   into.oob_after = static_cast<std::uint64_t>(
                       parse_number("--oob-after", given, {0, 1000 * million, "messages"}));
               });
}

void try_picture(const camera_options& camera)
{
    std::string tried = "--codec: "; // first: a source may take its time
    try {
        try_encoders(camera);
        tried = "--source: ";
        try_source(camera.source, camera.width, camera.height, camera.fps);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(tried + error.what());
    }
}

// What can only be judged when all options are known.
void finish(program_options& options, bool gop_given)
{
    camera_options& camera = options.camera;
    if (!gop_given) {
        camera.gop = 2 * camera.fps;
    }
    if (!camera.numbered_size && camera.fps > 120) {
        throw bad_value("--fps", std::to_string(camera.fps), "frames a second, 1 to 120");
    }
    if (camera.port != 0 && camera.port + options.cameras - 1 > 65535) {
        throw bad_value("--cameras", std::to_string(options.cameras),
                        "fewer of them or a lower --port, the last port would be above 65535");
    }
    if (!camera.numbered_size) {
        try_picture(camera);
    }
}

int complain(const std::string& what)
{
    (void)std::fprintf(stderr, "zucam-sim: %s\n", what.c_str());
    return status_wrong_options;
}

} // namespace

command_line read_command_line(int argc, const char* const* argv)
{
    program_options options;
    CLI::App app("A virtual network camera. Prints one line per camera, \"camera 0 listening on "
                 "ADDRESS:PORT\", and runs until SIGINT or SIGTERM; SIGUSR1 drops every link.",
                 "zucam-sim");
    add_port_options(app, options);
    add_picture_options(app, options.camera);
    option_group fault_group(app, "What it does wrong");
    add_drop_options(fault_group, options.camera.initial_faults);
    add_message_options(fault_group, options.camera.initial_faults);
    add_odd_options(fault_group, options.camera.initial_faults);
    try {
        app.parse(argc, argv);
        finish(options, app.count("--gop") > 0);
    } catch (const CLI::CallForHelp&) {
        (void)std::fputs(app.help().c_str(), stdout);
        return {std::nullopt, 0};
    } catch (const CLI::ParseError& error) {
        return {std::nullopt, complain(std::string(error.what()) + "; see zucam-sim --help")};
    } catch (const std::runtime_error& error) {
        return {std::nullopt, complain(error.what())};
    }
    return {options, 0};
}

} // namespace zucam
