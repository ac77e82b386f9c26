// The options of the soak. Read before any thread runs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace soak
{

struct program_options {
    double minutes = 5;
    std::size_t cameras = 128;
    std::size_t crowd = 256; // logins of the second phase; 0: none
    std::size_t threads = 16;
    std::uint32_t seed = 0; // drawn when none is given
    bool lose_one = false;

    double seconds() const
    {
        return 60 * minutes;
    }
    // A fifth of the run, two seconds at least and a minute at most.
    double crowd_seconds() const;
    // Links live 15 seconds in the mean; in a run of less than a minute and a half, a sixth of it.
    double link_life() const;
};

struct command_line {
    bool run;
    int status; // of the program, when it does not run
    program_options options;
};

// Prints the help, or one line about what is wrong.
command_line read_command_line(int argc, const char* const* argv);

} // namespace soak
