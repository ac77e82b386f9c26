// zucam keyframe: asks for key frames and waits for them. A device may say yes and send none, so
// the frame counts, not the answer.
#include "commands/commands.h"
#include "shared/exit_codes.h"
#include "shared/frame_reader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool
{

namespace
{

struct keyframe_options {
    std::string camera;
    std::uint64_t count = 1;
    stream_choice stream;
};

double in_ms(zu::Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

// Video flows first: what comes by itself at the begin of a stream is no answer to us.
void wait_for_video(frame_reader& frames)
{
    for (;;) {
        const auto frame = frames.next();
        if (frame && frame->kind == zu::FrameKind::video) {
            return;
        }
    }
}

zu::Clock::time_point next_key_frame(toolbox& tools, frame_reader& frames,
                                     zu::Clock::time_point asked)
{
    const auto latest = asked + patience_with_video(tools);
    while (zu::Clock::now() < latest) {
        const auto frame = frames.next();
        if (frame && frame->key && frame->arrived >= asked) {
            return frame->arrived;
        }
    }
    throw failure(exit_code::stalled, "the camera promised a key frame and sent none");
}

void ask_once(toolbox& tools, connection& to, frame_reader& frames)
{
    const auto asked = zu::Clock::now();
    to.check(to.camera().ask_for_key_frame(), "the request for a key frame");
    const auto answered = zu::Clock::now();
    const auto came = next_key_frame(tools, frames, asked);
    if (tools.out.wants_json()) {
        tools.out.data(
            json{{"answer_ms", in_ms(answered - asked)}, {"key_frame_ms", in_ms(came - asked)}});
    } else {
        tools.out.data(fmt::format("key frame after {:.1f} ms, answer after {:.1f} ms",
                                   in_ms(came - asked), in_ms(answered - asked)));
    }
}

void keyframe(toolbox& tools, const keyframe_options& options)
{
    connection to(tools, find_camera(tools, options.camera));
    to.start_stream(options.stream);
    frame_reader frames(tools, to);
    wait_for_video(frames);
    for (std::uint64_t i = 0; i < options.count; ++i) {
        ask_once(tools, to, frames);
    }
}

} // namespace

void add_keyframe(command_line& line)
{
    const auto options = std::make_shared<keyframe_options>();
    command sub = line.add("keyframe", "Asks for a key frame and waits until it has come.",
                           "  zucam keyframe door\n"
                           "  zucam keyframe door --stream 1 --count 10 --json\n");
    sub.positional("CAMERA", options->camera, "HOST[:PORT] or a name of the list");
    sub.number("--count", options->count, {1, 1000000, "a number of key frames"},
               "asks so many times, one after the other [1]");
    sub.takes(options->stream);
    sub.does([options](toolbox& tools) { keyframe(tools, *options); });
}

} // namespace tool
