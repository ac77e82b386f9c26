// The commands. Each adds itself to the command line; what it does stands in its own file.
#pragma once

#include "shared/command_line.h"

namespace tool
{

void add_info(command_line& line);
void add_watch(command_line& line);
void add_record(command_line& line);
void add_snapshot(command_line& line);
void add_config(command_line& line);
void add_ptz(command_line& line);
void add_preset(command_line& line);
void add_keyframe(command_line& line);
void add_bench(command_line& line);
void add_sim(command_line& line);

} // namespace tool
