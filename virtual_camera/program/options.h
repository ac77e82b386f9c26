// The command line of zucam-sim. It is read once, before any thread runs, and
// gives either the options of the first camera and what the program itself
// needs, or a status to end with. Faults are part of the camera's options;
// there is no option that a test could not set in code.
#ifndef ZUCAM_OPTIONS_H
#define ZUCAM_OPTIONS_H

#include "virtual_camera/camera.h"

#include <optional>
#include <string>

namespace zucam
{

struct program_options {
    camera_options camera; // of the first one
    unsigned cameras = 1;
    std::string journal_path; // empty: none
};

// What is left to do: run with the options, or end with a status (after --help, or when the line
// is wrong; the texts are printed).
struct command_line {
    std::optional<program_options> run;
    int status = 0;
};

constexpr int status_wrong_options = 2;

command_line read_command_line(int argc, const char* const* argv);

} // namespace zucam

#endif
