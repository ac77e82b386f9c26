// Where a line of the log goes: the installed callback, or standard output.
//
// Where lines are written at once, the callbacks note what they get in atomics.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kept_lines.h"
#include "log.h"
#include "log_tap.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST(LogDelivery, GoesToStandardOutputWithoutACallback)
{
    ASSERT_EQ(info_callback, nullptr);
    set_log_level(2);

    testing::internal::CaptureStdout();
    LOG_ERROR("f", "100%% sure\n");
    LOG_TRACE("f", "no end");
    const std::string printed = testing::internal::GetCapturedStdout();

    const std::string prefix = "\\[[^]]*\\+[0-9]+ +f\\] ";
    EXPECT_THAT(printed, MatchesRegex(prefix + "100% sure\n" + prefix + "no end"));
}

TEST(LogDelivery, LeavesStandardOutputAloneOnceThereIsACallback)
{
    keep_lines_at(2);

    testing::internal::CaptureStdout();
    LOG_ERROR("f", "text\n");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(kept.size(), 1U);
}

TEST(LogDelivery, PrintsNothingAtLevel0)
{
    ASSERT_EQ(info_callback, nullptr);
    set_log_level(0);

    testing::internal::CaptureStdout();
    LOG_ERROR("f", "text\n");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(LogDelivery, RefusesANullCallbackAndKeepsTheOneItHas)
{
    EXPECT_EQ(ZU_NET_DEV_SetLogCallback(keep), 0);
    set_log_level(1);

    EXPECT_EQ(ZU_NET_DEV_SetLogCallback(nullptr), -1);
    LOG_ERROR("f", "text\n");

    EXPECT_EQ(info_callback, keep);
    EXPECT_THAT(kept_messages(), ElementsAre("text\n"));
}

TEST(LogDelivery, RefusesANullCallbackWhenItHasNone)
{
    ASSERT_EQ(info_callback, nullptr);
    EXPECT_EQ(ZU_NET_DEV_SetLogCallback(nullptr), -1);
    EXPECT_EQ(info_callback, nullptr);
}

TEST(LogDelivery, GoesToTheCallbackInstalledLast)
{
    static int other_lines;
    keep_lines_at(1);

    EXPECT_EQ(ZU_NET_DEV_SetLogCallback([](int, const char*) { other_lines++; }), 0);
    LOG_ERROR("f", "text\n");

    EXPECT_EQ(other_lines, 1);
    EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST(LogDelivery, RunsOnTheThreadThatLogs)
{
    static std::thread::id seen_on;
    ZU_NET_DEV_SetLogCallback([](int, const char*) { seen_on = std::this_thread::get_id(); });
    set_log_level(1);

    std::thread::id own;
    std::thread([&own] {
        own = std::this_thread::get_id();
        LOG_ERROR("f", "text\n");
    }).join();

    EXPECT_EQ(seen_on, own);
}

TEST(LogDelivery, HandsOutOneBufferToAllThreads)
{
    keep_lines_at(1);

    LOG_ERROR("f", "one\n");
    std::thread([] { LOG_ERROR("f", "two\n"); }).join();

    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0].where, kept[1].where);
    EXPECT_EQ(kept[1].bare, "two\n");
}

TEST(LogDelivery, LetsItsCallbackWriteALineOfItsOwn)
{
    static int depth;
    static std::vector<std::string> seen;
    ZU_NET_DEV_SetLogCallback([](int, const char*) {
        seen.emplace_back(dbgout_info);
        if (depth++ == 0) {
            ZU_NET_DEV_Logout(0);
        }
    });
    set_log_level(1);

    LOG_ERROR("f", "text\n");

    EXPECT_THAT(seen, ElementsAre("text\n", "zu_sdk_inited == 0\n"));
}

TEST(LogDelivery, NeverLosesTheEndOfItsBuffersUnderConcurrentLines)
{
    static std::atomic<int> lines;
    static std::atomic<int> endless;
    ZU_NET_DEV_SetLogCallback([](int, const char* line) {
        lines++;
        if (static_cast<const volatile char*>(line)[255] != '\0' ||
            static_cast<const volatile char*>(dbgout_info)[255] != '\0') {
            endless++;
        }
    });
    set_log_level(1);

    std::vector<std::thread> writers;
    for (int i = 0; i < 8; i++) {
        writers.emplace_back([i] {
            const std::string text(i % 2 == 0 ? 400 : 10, static_cast<char>('a' + i));
            for (int n = 0; n < 500; n++) {
                LOG_ERROR("f", "%s\n", text.c_str());
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }

    EXPECT_EQ(lines, 8 * 500);
    EXPECT_EQ(endless, 0);
}
