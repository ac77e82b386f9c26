// What the library is expected to log, as a story: every line of a course of events in its order,
// written down once, each with its gate. What a level tells of it is worked out here, by the levels
// alone and apart from the library's own test of them.
//
// Runs on the test's thread.
#pragma once

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "log.h"
#include "log_tap.h"

namespace support
{

// ---- stories -----------------------------------------------------------------------------------

// One line. "*" in the message stands for any text.
struct told {
    log_gate gate;
    int type;
    std::string message;
    std::string function = {}; // empty: the one that the story is about
};
using story = std::vector<told>;

told trace(const std::string& message);
told error(const std::string& message);

story operator+(story left, const story& right);

bool let_through(log_gate gate, int level);
// The part of a story that a level tells.
story let_through(const story& whole, int level);

// ---- what has been logged ----------------------------------------------------------------------

// The lines are what the level tells of the story about `function`, in order: types, functions and
// texts, nothing missing and nothing besides. A failure shows both.
testing::AssertionResult is_story(const std::vector<log_line>& lines, const std::string& function,
                                  int level, const story& whole);

// So are all lines that have been taken, whoever wrote them.
testing::AssertionResult all_told(const log_tap& log, const std::string& function, int level,
                                  const story& whole);

// So are the lines of the function itself, whatever others wrote.
testing::AssertionResult told_by(const log_tap& log, const std::string& function, int level,
                                 const story& whole);

// ---- tests over the levels ---------------------------------------------------------------------

constexpr int log_levels[] = {-1, 0, 1, 2}; // -1: none has been set yet

inline auto all_levels()
{
    return testing::ValuesIn(log_levels);
}

// For tests that run once for each level: beside a fixture, and as one.
class with_level : public testing::WithParamInterface<int>
{
protected:
    const int level = GetParam();
};

class at_level : public testing::Test, public with_level
{
};

std::string level_text(int level);

std::string level_name(const testing::TestParamInfo<int>& info);

// The names of instances that are pairs of something with a name and a level.
constexpr auto name_and_level = [](const auto& info) {
    return std::string(std::get<0>(info.param).name) + level_text(std::get<1>(info.param));
};

} // namespace support
