// What a function is expected to log at each level, as a table.
//
// Tests that are parameterised over the levels -1, 0, 1 and 2 write down every line of a course of
// events once, with its gate; expect_lines compares what the tap took with what the level lets
// through, in order, types included. Runs on the test's thread.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log.h"
#include "log_tap.h"

namespace support
{

struct expected_line {
    log_gate gate;
    int type;
    std::string message;
};

inline expected_line trace(const std::string& message)
{
    return {log_at_trace_level, 7, message};
}

inline expected_line error(const std::string& message)
{
    return {log_at_error_levels, 0, message};
}

// By the levels alone, apart from the library's own test of them.
inline bool let_through(log_gate gate, int level)
{
    switch (gate) {
    case log_at_every_level:
        return true;
    case log_at_error_levels:
        return level == 1 || level == 2;
    default:
        return level == 2;
    }
}

// All lines that have been taken, as "type function message", must be these.
inline void expect_lines(const log_tap& log, int level, const std::string& function,
                         const std::vector<expected_line>& expected)
{
    std::vector<std::string> wanted;
    for (const auto& line : expected) {
        if (let_through(line.gate, level)) {
            wanted.push_back(std::to_string(line.type) + " " + function + " " + line.message);
        }
    }
    std::vector<std::string> got;
    for (const auto& line : log.lines()) {
        got.push_back(std::to_string(line.type) + " " + line.function + " " + line.message);
    }
    EXPECT_EQ(got, wanted) << "at level " << level;
}

// A fixture for tests over the levels; name_level names the instances.
class at_level : public testing::TestWithParam<int>
{
};

inline std::string name_level(const testing::TestParamInfo<int>& with)
{
    return with.param < 0 ? std::string("NeverSet") : std::to_string(with.param);
}

inline auto all_levels()
{
    return testing::Values(-1, 0, 1, 2);
}

} // namespace support
