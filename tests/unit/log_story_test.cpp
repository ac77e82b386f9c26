// The comparison of logged lines with a story, on which all tests of the log rely: it sees whatever
// differs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"

using namespace support;

namespace
{

const story whole = {
    {log_at_every_level, 7, "always\n"},
    error("failed: *\n"),
    trace("left\n"),
    {log_at_error_levels, 0, "helped\n", "helper"},
};
const std::vector<log_line> all_lines = {
    {7, "f", "always\n"}, {0, "f", "failed: 5\n"}, {7, "f", "left\n"}, {0, "helper", "helped\n"}};

std::vector<log_line> with_line(size_t number, const log_line& line)
{
    auto lines = all_lines;
    lines[number] = line;
    return lines;
}

} // namespace

TEST(LogStory, IsToldByItsOwnLinesAtEachLevel)
{
    const std::vector<log_line> errors = {all_lines[0], all_lines[1], all_lines[3]};
    EXPECT_TRUE(is_story({all_lines[0]}, "f", -1, whole));
    EXPECT_TRUE(is_story({all_lines[0]}, "f", 0, whole));
    EXPECT_TRUE(is_story(errors, "f", 1, whole));
    EXPECT_TRUE(is_story(all_lines, "f", 2, whole));
    EXPECT_FALSE(is_story(all_lines, "f", 1, whole));
    EXPECT_FALSE(is_story(errors, "f", 0, whole));
    EXPECT_FALSE(is_story(errors, "f", 2, whole));
    EXPECT_FALSE(is_story({}, "f", -1, whole));
}

TEST(LogStory, IsNotToldByOtherLines)
{
    EXPECT_FALSE(is_story(with_line(0, {0, "f", "always\n"}), "f", 2, whole));
    EXPECT_FALSE(is_story(with_line(0, {7, "g", "always\n"}), "f", 2, whole));
    EXPECT_FALSE(is_story(with_line(0, {7, "f", "always"}), "f", 2, whole));
    EXPECT_FALSE(is_story(with_line(3, {0, "f", "helped\n"}), "f", 2, whole));
    EXPECT_FALSE(is_story(all_lines, "g", 2, whole));
}

TEST(LogStory, IsNotToldByItsLinesInAnotherOrderNorByMoreNorFewer)
{
    EXPECT_FALSE(is_story({all_lines[0], all_lines[2], all_lines[1], all_lines[3]}, "f", 2, whole));
    auto more = all_lines;
    more.push_back(all_lines[3]);
    EXPECT_FALSE(is_story(more, "f", 2, whole));
    auto fewer = all_lines;
    fewer.pop_back();
    EXPECT_FALSE(is_story(fewer, "f", 2, whole));
}

TEST(LogStory, HasAStarForAnyText)
{
    EXPECT_TRUE(is_story(with_line(1, {0, "f", "failed: \n"}), "f", 2, whole));
    EXPECT_TRUE(is_story(with_line(1, {0, "f", "failed: a * b\n"}), "f", 2, whole));
    EXPECT_FALSE(is_story(with_line(1, {0, "f", "failed: 5"}), "f", 2, whole));
    EXPECT_FALSE(is_story(with_line(1, {0, "f", "failed. 5\n"}), "f", 2, whole));
}

TEST(LogStory, ShowsBothListsWhenTheyDiffer)
{
    EXPECT_STREQ(is_story({{7, "g", "no end"}}, "f", 0, whole).message(),
                 "f at level 0\nexpected:\n  7 f: always\nfound:\n  7 g: no end[no line end]\n");
}
