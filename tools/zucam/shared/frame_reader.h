// The frames of a stream, for commands that take them one by one.
#pragma once

#include "shared/connection.h"

#include <optional>

namespace tool
{

// How long video may stay away before a command gives up: long enough for a lost link to come back.
milliseconds patience_with_video(const toolbox& tools);

// Asks for a key frame, which comes or not; its answer is hardly waited for.
void ask_for_key_frame(connection& to);

class frame_reader
{
public:
    frame_reader(toolbox& tools, connection& to);

    // The next frame; nothing when none came for a tenth of a second. Throws the failure of a stall
    // when no video has come for as long as the patience lasts, and an interruption. What the
    // caller does in between takes nothing of the patience: frames wait in the queue meanwhile.
    std::optional<zu::Frame> next();

private:
    toolbox& tools_;
    connection& to_;
    zu::Clock::time_point returned_ = zu::Clock::now(); // when the caller was last left to itself
    zu::Clock::time_point last_video_ = returned_;      // later by what the caller took since
};

} // namespace tool
