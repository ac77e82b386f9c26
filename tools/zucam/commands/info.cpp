// zucam info: what a camera says of itself, and whether what it says comes true. Everything is
// asked even when something fails; the first failure decides the exit code.
#include "commands/commands.h"
#include "media/access_units.h"
#include "shared/exit_codes.h"
#include "shared/frame_reader.h"
#include "shared/records.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

struct info_options {
    std::string camera;
    stream_choice stream;
};

// What has been found out so far, for both ways of printing it.
class report
{
public:
    void add(const std::string& title, const std::string& key, const std::string& text, json value)
    {
        add_line(title, text);
        object_[key] = std::move(value);
    }

    // A setting may be called like something else that is told.
    void add_setting(const std::string& name, const std::string& text, json value)
    {
        add_line(name, text);
        object_["settings"][name] = std::move(value);
    }

    void add_failure(const std::string& title, const std::string& key, const failure& why)
    {
        add(title, key, why.what(), json{{"error", why.what()}});
        note(why);
    }

    void add_setting_failure(const std::string& name, const failure& why)
    {
        add_setting(name, why.what(), json{{"error", why.what()}});
        note(why);
    }

    void print(console& out) const
    {
        if (out.wants_json()) {
            out.data(object_);
            return;
        }
        for (const std::string& line : lines_) {
            out.data(line);
        }
    }

    void throw_failure() const
    {
        if (first_failure_) {
            throw failure(*first_failure_);
        }
    }

private:
    void add_line(const std::string& title, const std::string& text)
    {
        lines_.push_back(fmt::format("{:<15}{}", title + ":", text));
    }

    void note(const failure& why)
    {
        if (!first_failure_) {
            first_failure_ = why;
        }
    }

    std::vector<std::string> lines_;
    json object_ = json::object();
    std::optional<failure> first_failure_;
};

const char* sound_name(unsigned audio_format)
{
    switch (audio_format) {
    case 0:
        return "none";
    case 1:
        return "G.711 A-law";
    case 2:
        return "G.711 mu-law";
    default:
        return "of a kind that is not known here";
    }
}

// ---- the settings ----

std::string in_one_line(const record_kind& kind, const record_bytes& record)
{
    std::string text;
    for (const record_field& field : kind.fields) {
        const json value = record_as_json(kind, record)[field.name];
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", field.name, value.dump());
    }
    return kind.fields.empty() ? fmt::format("{} stored", record_as_json(kind, record).size())
                               : text;
}

void report_setting(report& found, connection& to, const record_kind& kind, std::uint32_t stream)
{
    record_bytes record = empty_record(kind, stream);
    const std::error_code error = to.camera().read(kind.command, record.data(), record.size());
    if (error) {
        found.add_setting_failure(
            kind.name, to.failure_of(error, fmt::format("the reading of {}", kind.name)));
        return;
    }
    found.add_setting(kind.name, in_one_line(kind, record), record_as_json(kind, record));
}

void report_round_trip(report& found, connection& to)
{
    const zu::Stats stats = to.camera().stats();
    const double answers = static_cast<double>(stats.requests_done + stats.requests_refused);
    if (answers > 0) {
        const double mean = static_cast<double>(stats.round_trip_sum_us) / answers / 1000.0;
        found.add("round trip", "round_trip_ms", fmt::format("{:.1f} ms", mean), mean);
    }
}

// ---- the video ----

void report_description(report& found, connection& to)
{
    const auto told = to.camera().description();
    if (!told) {
        return;
    }
    found.add("described as", "description",
              fmt::format("{} x {}, {} frames/s, {} kbit/s, sound {}", told->width, told->height,
                          told->frame_rate, told->bit_rate, sound_name(told->audio_format)),
              json{{"width", told->width},
                   {"height", told->height},
                   {"frame_rate", told->frame_rate},
                   {"bit_rate", told->bit_rate},
                   {"audio_format", told->audio_format},
                   {"stream", told->stream}});
}

void report_key_frame(report& found, const zu::Frame& frame, zu::Clock::time_point asked)
{
    const double after = std::chrono::duration<double, std::milli>(frame.arrived - asked).count();
    const auto format = format_of(frame.bytes, frame.codec);
    if (!format) {
        throw failure(exit_code::protocol, "a key frame whose parameter sets make no sense");
    }
    found.add("sends", "video",
              fmt::format("{} {} x {}, first picture after {:.0f} ms", name_of(format->codec),
                          format->width, format->height, after),
              json{{"codec", name_of(format->codec)},
                   {"width", format->width},
                   {"height", format->height},
                   {"first_picture_ms", after}});
}

// Until a key frame has come.
zu::Frame first_key_frame(toolbox& tools, connection& to)
{
    frame_reader frames(tools, to);
    key_frame_completer completer;
    bool video = false;
    const auto latest = zu::Clock::now() + patience_with_video(tools);
    while (zu::Clock::now() < latest) {
        auto frame = frames.next();
        if (frame && frame->kind == zu::FrameKind::parameter_sets) {
            completer.take_parameter_sets(*frame);
        } else if (frame && frame->kind == zu::FrameKind::video && frame->key) {
            completer.complete(*frame);
            return std::move(*frame);
        }
        video = video || (frame && frame->kind == zu::FrameKind::video);
    }
    throw failure(video ? exit_code::protocol : exit_code::stalled,
                  video ? "video comes, but no key frame of H.264 or H.265" : "no video came");
}

void report_video(report& found, toolbox& tools, connection& to, const stream_choice& stream)
{
    try {
        const auto asked = zu::Clock::now();
        to.start_stream(stream);
        const zu::Frame key_frame = first_key_frame(tools, to);
        report_description(found, to);
        report_key_frame(found, key_frame, asked);
    } catch (const failure& why) {
        found.add_failure("sends", "video", why);
    }
}

void info(toolbox& tools, const info_options& options)
{
    connection to(tools, find_camera(tools, options.camera));
    report found;
    found.add("camera", "camera",
              fmt::format("{}, connected in {} ms", to.place().label, to.connected_in().count()),
              json{{"host", to.place().address.host},
                   {"port", to.place().address.port},
                   {"connected_ms", to.connected_in().count()}});
    report_video(found, tools, to, options.stream);
    for (const record_kind& kind : record_kinds()) {
        report_setting(found, to, kind, options.stream.number);
    }
    report_round_trip(found, to);
    found.print(tools.out);
    found.throw_failure();
}

} // namespace

void add_info(command_line& line)
{
    const auto options = std::make_shared<info_options>();
    command sub = line.add("info", "Tells what the camera sends and how it is set.",
                           "  zucam info 192.0.2.7:9000\n"
                           "  zucam info door --stream 1\n"
                           "  zucam info door --json | jq .video\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { info(tools, *options); });
}

} // namespace tool
