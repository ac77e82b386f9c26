// Waiting for frames in short pieces, so that signals and live lines get their turn.
#include "shared/frame_reader.h"

#include "shared/exit_codes.h"

#include <fmt/format.h>

namespace tool
{

namespace
{

constexpr milliseconds usual_patience{20000};
constexpr milliseconds one_turn{100};

} // namespace

milliseconds patience_with_video(const toolbox& tools)
{
    return tools.options.timeout.value_or(usual_patience);
}

// A turn is enough for the request to begin; the layer goes on with it by itself.
void ask_for_key_frame(connection& to)
{
    (void)to.camera().ask_for_key_frame(one_turn);
}

frame_reader::frame_reader(toolbox& tools, connection& to) : tools_(tools), to_(to)
{
}

std::optional<zu::Frame> frame_reader::next()
{
    if (tools_.signals.asked_to_end()) {
        throw interrupted();
    }
    const milliseconds patience = patience_with_video(tools_);
    last_video_ += zu::Clock::now() - returned_;
    auto frame = to_.camera().next_frame(std::min(one_turn, patience));
    const auto now = zu::Clock::now();
    returned_ = now;
    if (frame && frame->kind == zu::FrameKind::video) {
        last_video_ = now;
    } else if (now - last_video_ > patience) {
        throw failure(exit_code::stalled,
                      fmt::format("no video came from {} for {:g} s", to_.place().label,
                                  static_cast<double>(patience.count()) / 1000.0));
    }
    return frame;
}

} // namespace tool
