// How zucam ends: its exit codes, and the exceptions that carry them to main(). The numbers are
// promised in the manual page; scripts go by them.
#pragma once

#include <stdexcept>
#include <string>

namespace tool
{

enum class exit_code {
    done = 0,
    machine = 1, // this machine gave no memory, threads or descriptors
    usage = 2,
    cannot_connect = 3,
    timed_out = 4,
    stalled = 5,
    protocol = 6,
    refused = 7,
    output = 8,
    interrupted = 130,
};

// Why a command ends early: one line for standard error, and the code. An interruption has no line.
class failure : public std::runtime_error
{
public:
    failure(exit_code code, const std::string& line) : std::runtime_error(line), code_(code)
    {
    }
    exit_code code() const
    {
        return code_;
    }

private:
    exit_code code_;
};

// Whoever reads our standard output has had enough. The program ends well, without a word.
struct reader_gone {
};

inline failure interrupted()
{
    return {exit_code::interrupted, ""};
}

inline failure bad_value(const std::string& option, const std::string& given,
                         const std::string& right)
{
    return {exit_code::usage, option + ": '" + given + "' is not possible; give " + right};
}

} // namespace tool
