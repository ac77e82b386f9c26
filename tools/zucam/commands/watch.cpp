// zucam watch: what happens to a camera, as a timeline, and how its video flows, as a live line.
//
// Handlers run on threads of the layer and leave notices behind; the main thread prints them.
#include "commands/commands.h"
#include "media/access_units.h"
#include "shared/connection.h"
#include "shared/exit_codes.h"
#include "shared/timeline.h"
#include "shared/video_rates.h"

#include <atomic>
#include <fmt/format.h>
#include <tuple>

namespace tool
{

namespace
{

constexpr milliseconds one_turn{100};
constexpr milliseconds figures_every{1000};
constexpr milliseconds usual_stall{3000};

struct watch_options {
    std::string camera;
    stream_choice stream;
    limits limit;
};

double in_seconds(zu::Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

// ---- what the threads of the layer notice ----

bool is_same(const zu::StreamDescription& one, const zu::StreamDescription& other)
{
    const auto all = [](const zu::StreamDescription& each) {
        return std::tie(each.width, each.height, each.audio_format, each.stream, each.frame_rate,
                        each.bit_rate);
    };
    return all(one) == all(other);
}

class observer
{
public:
    explicit observer(timeline& told) : told_(told)
    {
    }

    void take(const zu::Event& event)
    {
        const bool heartbeat = event.kind == zu::EventKind::heartbeat;
        if (heartbeat) {
            last_heartbeat_ = event.at.time_since_epoch();
        }
        told_.add(event.at, zu::name_of(event.kind), {}, heartbeat);
    }

    // On the receiver thread, which alone uses what is remembered here.
    void take(const zu::FrameView& frame)
    {
        flow_.take(frame.kind, frame.key, frame.size, frame.arrived);
        if (frame.kind == zu::FrameKind::system_header) {
            take_description(frame);
        } else if (frame.kind == zu::FrameKind::video && frame.codec != codec_) {
            codec_ = frame.codec;
            told_.add(frame.arrived, "video", {{"codec", name_of(codec_)}});
        }
    }

    const video_rates& flow() const
    {
        return flow_;
    }

    // Nothing before the first one.
    std::optional<zu::Clock::duration> heartbeat_age() const
    {
        const zu::Clock::duration last = last_heartbeat_;
        const zu::Clock::duration age = zu::Clock::now().time_since_epoch() - last;
        return last == zu::Clock::duration() ? std::nullopt : std::make_optional(age);
    }

private:
    void take_description(const zu::FrameView& frame)
    {
        const auto now = frame.description();
        if (!now) {
            told_.add(frame.arrived, "system header too short", {});
            return;
        }
        if (described_ && is_same(*described_, *now)) {
            return; // some devices say it again and again
        }
        described_ = now;
        told_.add(frame.arrived, "stream",
                  {{"width", now->width},
                   {"height", now->height},
                   {"frame_rate", now->frame_rate},
                   {"bit_rate", now->bit_rate},
                   {"audio_format", now->audio_format}});
    }

    timeline& told_;
    video_rates flow_;
    std::optional<zu::StreamDescription> described_;
    std::atomic<zu::Clock::duration> last_heartbeat_{zu::Clock::duration()};
    zu::Codec codec_ = zu::Codec::unknown;
};

// ---- what is shown ----

const char* state_of(const zu::Camera& camera)
{
    if (camera.link().state == zu::LinkState::down) {
        return "link down";
    }
    switch (camera.media().state) {
    case zu::MediaState::flowing:
        return "flowing";
    case zu::MediaState::trickling:
        return "trickling";
    case zu::MediaState::stalled:
        return "stalled";
    default:
        return "no stream";
    }
}

// Five characters, or more when it is a long time.
std::string age(const std::optional<zu::Clock::duration>& time)
{
    if (!time) {
        return "never";
    }
    const double seconds = in_seconds(*time);
    return seconds < 0.9995 ? fmt::format("{:3.0f}ms", seconds * 1000)
                            : fmt::format("{:4.1f}s", seconds);
}

// The same for terminals of 140, 100, 80 and 60 columns. Numbers keep their places, so that one can
// see which of them changes.
std::vector<std::string> live_line(const zu::Camera& camera, const rates& flow,
                                   const observer& seen)
{
    const bool key_known = flow.key_distance_frames > 0;
    const std::string key = key_known ? std::to_string(flow.key_distance_frames) : "?";
    const std::string key_time =
        key_known ? fmt::format("{:.1f}s", flow.key_distance.count()) : "?";
    const auto shape = [&](const char* format) {
        return fmt::format(fmt::runtime(format), fmt::arg("state", state_of(camera)),
                           fmt::arg("frames", flow.frames), fmt::arg("mbit", flow.mbit),
                           fmt::arg("key", key), fmt::arg("key_time", key_time),
                           fmt::arg("age", age(flow.last_frame_age)),
                           fmt::arg("beat", age(seen.heartbeat_age())),
                           fmt::arg("again", camera.stats().reconnections));
    };
    return {shape("{state:<9}  {frames:5.1f} frames/s  {mbit:5.2f} Mbit/s  key frame every {key} "
                  "({key_time})  last frame {age}  heartbeat {beat}  {again} reconnections"),
            shape("{state:<9}  {frames:5.1f} frames/s  {mbit:5.2f} Mbit/s  key {key}/{key_time}  "
                  "frame {age}  heartbeat {beat}  reconnected {again}"),
            shape("{state:<9} {frames:5.1f} fps {mbit:5.2f} Mbit/s  key {key}  frame {age}  "
                  "beat {beat}  recon {again}"),
            shape("{state:<9} {frames:5.1f}fps {mbit:4.1f}Mb/s key {key} age {age} hb {beat} "
                  "re {again}")};
}

json seconds_or_null(const std::optional<zu::Clock::duration>& time)
{
    return time ? json(in_seconds(*time)) : json();
}

json figures(const zu::Camera& camera, const rates& flow, const observer& seen)
{
    return {{"state", state_of(camera)},
            {"frames_per_second", flow.frames},
            {"mbit_per_second", flow.mbit},
            {"key_distance_frames", flow.key_distance_frames},
            {"key_distance_seconds", flow.key_distance.count()},
            {"frame_age_seconds", seconds_or_null(flow.last_frame_age)},
            {"heartbeat_age_seconds", seconds_or_null(seen.heartbeat_age())},
            {"reconnections", camera.stats().reconnections}};
}

json totals(const zu::Camera& camera, const rates& flow)
{
    const zu::Stats stats = camera.stats();
    return {{"frames", stats.video_frames},
            {"key_frames", stats.key_frames},
            {"audio_frames", stats.audio_frames},
            {"bytes", stats.bytes},
            {"stalls", stats.gaps},
            {"longest_gap_seconds", flow.longest_gap.count()},
            {"reconnections", stats.reconnections},
            {"heartbeats", stats.heartbeats}};
}

// ---- the loop ----

bool is_enough(const watch_options& options, zu::Clock::duration so_far, const rates& flow)
{
    return (options.limit.seconds && so_far >= *options.limit.seconds) ||
           (options.limit.count && flow.video_frames >= *options.limit.count);
}

void watch_until_enough(toolbox& tools, connection& to, const watch_options& options,
                        const observer& seen, timeline& told)
{
    const auto began = zu::Clock::now();
    auto figures_at = began + figures_every;
    for (;;) {
        const auto now = zu::Clock::now();
        const rates flow = seen.flow().now(now);
        told.print(tools.out);
        tools.out.live(live_line(to.camera(), flow, seen));
        if (tools.out.wants_json() && now >= figures_at) {
            told.add(now, "figures", figures(to.camera(), flow, seen));
            figures_at += figures_every;
        }
        if (tools.signals.asked_to_end() || is_enough(options, now - began, flow)) {
            break;
        }
        tools.signals.wait(one_turn);
    }
    const auto now = zu::Clock::now();
    told.add(now, "summary", totals(to.camera(), seen.flow().now(now)));
}

void judge(toolbox& tools, const connection& to, const std::string& state)
{
    if (tools.signals.asked_to_end()) {
        throw interrupted();
    }
    if (state != "flowing" && state != "trickling") {
        throw failure(exit_code::stalled,
                      fmt::format("no video from {} at the end: {}", to.place().label, state));
    }
}

void watch(toolbox& tools, const watch_options& options)
{
    timeline told;
    observer seen(told);
    zu::CameraOptions handlers;
    handlers.on_event = [&seen](const zu::Event& event) { seen.take(event); };
    handlers.on_frame = [&seen](const zu::FrameView& frame) { seen.take(frame); };
    handlers.stalled_after = std::max(std::min(deadline_of(tools), usual_stall), milliseconds(200));
    connection to(tools, find_camera(tools, options.camera), std::move(handlers));
    told.add(zu::Clock::now(), "connected",
             {{"camera", to.place().label}, {"login_ms", to.connected_in().count()}});
    to.start_stream(options.stream);
    tools.signals.finish_orderly();
    watch_until_enough(tools, to, options, seen, told);
    const std::string state = state_of(to.camera());
    tools.out.end_live();
    told.print(tools.out);
    judge(tools, to, state);
}

} // namespace

void add_watch(command_line& line)
{
    const auto options = std::make_shared<watch_options>();
    command sub =
        line.add("watch", "Shows what happens to a camera, and at a terminal how it is just now.",
                 "  zucam watch door\n"
                 "  zucam watch door --seconds 10 && echo good\n"
                 "  zucam watch door --json | jq 'select(.event == \"link down\")'\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.seconds("--seconds", options->limit.seconds, "ends after this long");
    sub.option("--count", "N", "ends after so many frames", [options](const std::string& given) {
        options->limit.count = static_cast<std::uint64_t>(
            parse_number("--count", given, {1, INT64_MAX, "a number of frames"}));
    });
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { watch(tools, *options); });
}

} // namespace tool
