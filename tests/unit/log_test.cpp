// The diagnostic log: which lines are wanted and how a line is built.
//
// Most tests install a log callback and write lines through the library's own spellings, on the
// test's thread.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/time.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kept_lines.h"
#include "log.h"
#include "log_story.h"
#include "log_tap.h"
#include "seam.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

constexpr char stamp[] = "[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9] "
                         "[0-9][0-9]:[0-9][0-9]:[0-9][0-9][.][0-9][0-9]";

// The present to the hundredth of a second as local time, from the test's own reading.
std::string local_time_now()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char whole[32];
    strftime(whole, sizeof(whole), "%Y-%m-%d %H:%M:%S", &local);
    const long hundredths = now.tv_usec / 10000;
    return std::string(whole) + "." + std::to_string(hundredths / 10) +
           std::to_string(hundredths % 10);
}

} // namespace

// ---- levels ------------------------------------------------------------------------------------

TEST(Log, IsSilentUntilALevelIsSet)
{
    ASSERT_EQ(log_level, -1);
    ZU_NET_DEV_SetLogCallback(keep);

    LOG_TRACE("somebody", "trace\n");
    LOG_ERROR("somebody", "error\n");
    EXPECT_EQ(ZU_NET_DEV_Logout(0), ZU_FAILURE);

    EXPECT_THAT(kept_messages(), IsEmpty());
}

using LogGate = at_level;

TEST_P(LogGate, LetsALineThroughByItsGate)
{
    keep_lines_at(level);

    LOG_TRACE("somebody", "trace\n");
    LOG_ERROR("somebody", "error\n");
    LOG_LINE(log_at_every_level, ZU_LOG_TYPE_ERROR, "somebody", "always\n");
    LOG_LINE(log_at_error_levels, ZU_LOG_TYPE_TRACE, "somebody", "error gate, trace type\n");
    LOG_LINE(log_at_trace_level, ZU_LOG_TYPE_ERROR, "somebody", "trace gate, error type\n");

    std::vector<std::pair<int, std::string>> expected;
    if (level == 2) {
        expected.emplace_back(7, "trace\n");
    }
    if (level >= 1) {
        expected.emplace_back(0, "error\n");
    }
    expected.emplace_back(0, "always\n");
    if (level >= 1) {
        expected.emplace_back(7, "error gate, trace type\n");
    }
    if (level == 2) {
        expected.emplace_back(0, "trace gate, error type\n");
    }
    std::vector<std::pair<int, std::string>> got;
    for (const auto& line : kept) {
        got.emplace_back(line.type, line.bare);
    }
    EXPECT_EQ(got, expected);
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, LogGate, all_levels(), level_name);

TEST(Log, DoesNothingForALineThatIsNotWanted)
{
    keep_lines_at(1);
    const before_call clock("gettimeofday");
    int evaluated = 0;

    LOG_TRACE("somebody", "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(clock.count(), 0);

    set_log_level(0);
    LOG_ERROR("somebody", "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(clock.count(), 0);
    EXPECT_STREQ(dbgout_info, "");
}

TEST(Log, TakesTheLevels0To2AndNoOther)
{
    for (const ZU_U32 level : {0U, 1U, 2U}) {
        EXPECT_EQ(ZU_NET_DEV_SetLogLevel(level), ZU_SUCCESS);
        EXPECT_EQ(log_level, static_cast<int>(level));
    }
    for (const ZU_U32 level : {3U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        EXPECT_EQ(ZU_NET_DEV_SetLogLevel(level), ZU_FAILURE) << level;
        EXPECT_EQ(log_level, 2) << level;
    }
}

TEST(Log, KeepsItsLevelWhenAnotherIsRefused)
{
    keep_lines_at(1);

    EXPECT_EQ(ZU_NET_DEV_SetLogLevel(3), ZU_FAILURE);
    LOG_ERROR("somebody", "error\n");
    LOG_TRACE("somebody", "trace\n");

    EXPECT_THAT(kept_messages(), ElementsAre("error\n"));
}

TEST(Log, FallsSilentAtLevel0)
{
    keep_lines_at(2);

    EXPECT_EQ(ZU_NET_DEV_SetLogLevel(0), ZU_SUCCESS);
    EXPECT_EQ(ZU_NET_DEV_Logout(0), ZU_FAILURE);

    EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST(Log, IsSetUpWithoutALineOfItsOwn)
{
    const log_tap log(2);

    ZU_NET_DEV_SetLogCallback(keep);
    ZU_NET_DEV_SetLogCallback(nullptr);
    ZU_NET_DEV_SetLogLevel(2);
    ZU_NET_DEV_SetLogLevel(3);

    EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- one line ----------------------------------------------------------------------------------

TEST(Log, PutsTimeFileLineAndFunctionBeforeTheMessage)
{
    keep_lines_at(2);

    log_write(7, "some_function", 12, "text %d\n", 5);

    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(kept[0].type, 7);
    const std::string prefix = "\\[" + std::string(stamp) +
                               " \\.\\./source/src/zu_net_dev_api\\.cpp \\+12   some_function\\] ";
    EXPECT_THAT(kept[0].line, MatchesRegex(prefix + "text 5\n"));
    EXPECT_EQ(kept[0].bare, "text 5\n");
}

TEST(Log, GivesALineNumberAsManyPlacesAsItNeeds)
{
    keep_lines_at(2);

    log_write(7, "f", 12345, "\n");
    log_write(7, "f", 1234, "\n");

    EXPECT_THAT(kept[0].line, testing::HasSubstr(".cpp +12345 f] \n"));
    EXPECT_THAT(kept[1].line, testing::HasSubstr(".cpp +1234 f] \n"));
}

TEST(Log, ShowsTheStatementsOwnLineNumber)
{
    keep_lines_at(1);

    LOG_ERROR(__func__, "here\n");
    const int statement = __LINE__ - 1;

    EXPECT_THAT(kept[0].line, testing::HasSubstr(" +" + std::to_string(statement) + " "));
    EXPECT_THAT(kept[0].line, testing::HasSubstr(" TestBody] here\n"));
}

TEST(Log, NamesTheEntryPointThatWroteTheLine)
{
    keep_lines_at(2);

    ZU_NET_DEV_DeInit();

    ASSERT_EQ(kept.size(), 2U);
    EXPECT_THAT(kept[0].line, testing::HasSubstr(" ZU_NET_DEV_DeInit] enter ZU_NET_DEV_DeInit\n"));
    EXPECT_THAT(kept[1].line, testing::HasSubstr(" ZU_NET_DEV_DeInit] leave ZU_NET_DEV_DeInit\n"));
}

TEST(Log, AddsNoLineEndToAMessageWithoutOne)
{
    keep_lines_at(1);

    LOG_ERROR("f", "no end");

    EXPECT_EQ(kept[0].line.back(), 'd');
    EXPECT_EQ(kept[0].bare, "no end");
}

TEST(Log, BoundsALineAndItsMessageTo255Characters)
{
    keep_lines_at(1);
    const std::string text(300, 'x');

    LOG_ERROR("f", "%s\n", text.c_str());

    EXPECT_EQ(kept[0].line.size(), 255U);
    EXPECT_THAT(kept[0].line, MatchesRegex("\\[.* f\\] x+"));
    EXPECT_EQ(kept[0].bare, std::string(255, 'x'));
}

TEST(Log, KeepsALineOf255CharactersWhole)
{
    keep_lines_at(1);
    LOG_ERROR("f", "\n");
    const size_t prefix = kept[0].line.size() - 1; // of the next line too, see the line numbers

    const std::string text(254 - prefix, 'x');
    LOG_ERROR("f", "%s\n", text.c_str());

    EXPECT_EQ(kept[1].line.size(), 255U);
    EXPECT_EQ(kept[1].line.back(), '\n');
}

TEST(Log, LeavesNothingOfALongLineBehindAShortOne)
{
    keep_lines_at(1);
    const std::string text(300, 'x');

    LOG_ERROR("f", "%s\n", text.c_str());
    LOG_ERROR("f", "short\n");

    const std::string rest(dbgout_info + 6, dbgout_info + sizeof(dbgout_info));
    EXPECT_EQ(rest, std::string(rest.size(), '\0'));
}

TEST(Log, LeavesErrnoAlone)
{
    ZU_NET_DEV_SetLogCallback([](int, const char*) { errno = EPIPE; });
    set_log_level(1);
    const fault clock("gettimeofday", EPERM);

    errno = ENOENT;
    LOG_ERROR("f", "text\n");

    EXPECT_EQ(errno, ENOENT);
}

// ---- the time stamp ----------------------------------------------------------------------------

TEST(TimeStamp, Has22CharactersDownToTheHundredth)
{
    const std::string text = format_time();

    EXPECT_EQ(text.size(), 22U);
    EXPECT_THAT(text, MatchesRegex(stamp));
}

TEST(TimeStamp, IsTheLocalTime)
{
    setenv("TZ", "ABC-05:30", 1); // five and a half hours east
    tzset();

    const std::string before = local_time_now();
    const std::string text = format_time();
    const std::string after = local_time_now();

    EXPECT_LE(before, text);
    EXPECT_LE(text, after);
}

TEST(TimeStamp, StandsInTheSameBufferEveryTime)
{
    const char* first = format_time();
    EXPECT_EQ(format_time(), first);
}

TEST(TimeStamp, IsEmptyWhenTheClockCanNotBeRead)
{
    EXPECT_STRNE(format_time(), "");
    const fault clock("gettimeofday", EPERM);

    const char* text = format_time();

    EXPECT_EQ(std::string(text, 23), std::string(23, '\0'));
}

TEST(TimeStamp, IsEmptyWhenTheCalendarHasNoSuchTime)
{
    EXPECT_STRNE(format_time(), "");
    const fault calendar("localtime_r", EOVERFLOW);

    EXPECT_STREQ(format_time(), "");
}

TEST(TimeStamp, LeavesABlankFieldInALineWhenTheClockFails)
{
    keep_lines_at(1);
    const fault clock("gettimeofday", EPERM);

    LOG_ERROR("f", "still here\n");

    ASSERT_EQ(kept.size(), 1U);
    EXPECT_THAT(kept[0].line, StartsWith("[ ../source/src/zu_net_dev_api.cpp +"));
    EXPECT_THAT(kept[0].line, testing::EndsWith(" f] still here\n"));
}
