// The start and the end of the library.
//
// One thread; the library's state is that of a fresh process at the start of each test, or of an
// ended library, which is the same.
#include <cerrno>
#include <csignal>
#include <string>
#include <sys/socket.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "log_tap.h"
#include "process_probe.h"
#include "sdk_user.h"
#include "seam.h"
#include "stream_control.h"

using namespace support;
using testing::IsEmpty;

namespace
{

constexpr char init[] = "ZU_NET_DEV_Init";
constexpr char deinit[] = "ZU_NET_DEV_DeInit";

class LibraryState : public testing::Test
{
protected:
    ~LibraryState() override
    {
        ZU_NET_DEV_DeInit();
    }
};

} // namespace

TEST_F(LibraryState, StartsUninitialised)
{
    EXPECT_EQ(zu_sdk_inited, 0);
}

TEST_F(LibraryState, InitAndDeInitSucceedInTurn)
{
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(ZU_NET_DEV_Init(), ZU_SUCCESS);
        EXPECT_EQ(zu_sdk_inited, 1);
        EXPECT_EQ(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
        EXPECT_EQ(zu_sdk_inited, 0);
    }
}

TEST_F(LibraryState, DeInitSucceedsWithoutInit)
{
    EXPECT_EQ(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    EXPECT_EQ(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    EXPECT_EQ(ZU_NET_DEV_Init(), ZU_SUCCESS);
}

TEST_F(LibraryState, InitRefusesASecondTime)
{
    ASSERT_EQ(ZU_NET_DEV_Init(), ZU_SUCCESS);
    const before_call mutex("pthread_mutex_init");

    EXPECT_EQ(ZU_NET_DEV_Init(), ZU_FAILURE);
    EXPECT_EQ(zu_sdk_inited, 1);
    EXPECT_EQ(mutex.count(), 0);
}

TEST_F(LibraryState, InitAfterDeInitMakesTheMutexAnew)
{
    const before_call mutex("pthread_mutex_init");

    ZU_NET_DEV_Init();
    EXPECT_EQ(mutex.count(), 1);
    ZU_NET_DEV_DeInit();
    ZU_NET_DEV_Init();
    EXPECT_EQ(mutex.count(), 2);
}

TEST_F(LibraryState, InitKeepsABrokenPipeFromEndingTheProcess)
{
    signal(SIGPIPE, SIG_DFL);

    ZU_NET_DEV_Init();

    struct sigaction now = {};
    sigaction(SIGPIPE, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
}

TEST_F(LibraryState, AFailedMutexLeavesTheLibraryMarkedUntilDeInit)
{
    {
        const fault mutex("pthread_mutex_init", ENOMEM);
        EXPECT_EQ(ZU_NET_DEV_Init(), ZU_FAILURE);
        EXPECT_EQ(mutex.hits(), 1);
    }
    EXPECT_EQ(zu_sdk_inited, 1);

    const log_tap log(2);
    EXPECT_EQ(ZU_NET_DEV_Init(), ZU_FAILURE);
    EXPECT_TRUE(log.has("zu_sdk_inited == 1\n"));

    EXPECT_EQ(ZU_NET_DEV_DeInit(), ZU_SUCCESS);
    const before_call mutex("pthread_mutex_init");
    EXPECT_EQ(ZU_NET_DEV_Init(), ZU_SUCCESS);
    EXPECT_EQ(mutex.count(), 1);
}

TEST_F(LibraryState, DeInitLogsNobodyOut)
{
    ZU_NET_DEV_Init();
    const int slot = alloc_sdkuser();
    ASSERT_EQ(slot, 0);
    zu_sdk_user* const user = sdk_users[0];

    ZU_NET_DEV_DeInit();
    EXPECT_EQ(sdk_users[0], user);
    ZU_NET_DEV_Init();
    EXPECT_EQ(held_user(0).get(), user);
    free_sdkuser(0);
}

TEST_F(LibraryState, LeavesNothingBehind)
{
    const inventory before;
    ZU_NET_DEV_Init();
    ZU_NET_DEV_DeInit();
    EXPECT_EQ(before.left_over(), "");
}

// ---- lines -------------------------------------------------------------------------------------

class LibraryLines : public LibraryState, public with_level
{
};

TEST_P(LibraryLines, OfAGoodInit)
{
    const log_tap log(level);
    ZU_NET_DEV_Init();
    EXPECT_TRUE(all_told(log, init, level,
                         {trace("enter ZU_NET_DEV_Init\n"), trace("leave ZU_NET_DEV_Init\n")}));
}

TEST_P(LibraryLines, OfASecondInit)
{
    ZU_NET_DEV_Init();
    const log_tap log(level);
    ZU_NET_DEV_Init();
    EXPECT_TRUE(all_told(log, init, level,
                         {trace("enter ZU_NET_DEV_Init\n"), error("zu_sdk_inited == 1\n")}));
}

TEST_P(LibraryLines, OfAnInitWithoutMutex)
{
    const fault mutex("pthread_mutex_init", ENOMEM);
    const log_tap log(level);
    ZU_NET_DEV_Init();
    EXPECT_TRUE(
        all_told(log, init, level,
                 {trace("enter ZU_NET_DEV_Init\n"), error("pthread_mutex_init() failed\n")}));
}

TEST_P(LibraryLines, OfADeInit)
{
    const log_tap log(level);
    ZU_NET_DEV_DeInit();
    EXPECT_TRUE(all_told(log, deinit, level,
                         {trace("enter ZU_NET_DEV_DeInit\n"), trace("leave ZU_NET_DEV_DeInit\n")}));
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, LibraryLines, all_levels(), level_name);

// ---- who asks whether the library is initialised -----------------------------------------------

TEST(WithoutInit, TheEntryPointsThatTestForItRefuse)
{
    ZU_U32 handle = 7;
    ZU_S_STREAM_INFO_EXT info = {};
    info.u8Type = 1;
    const auto on_stream = [](ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID*) -> ZU_S32 { return 0; };
    const auto on_event = [](ZU_U32, ZU_U32, ZU_VOID*) -> ZU_S32 { return 0; };
    const log_tap log(1);

    EXPECT_EQ(ZU_NET_DEV_Login(&handle, "u", "p", "127.0.0.1", 1), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_Logout(0), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_SetReconnect(0, 1), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_SetStreamCallBack(0, on_stream, nullptr), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_SetEventCallBack(0, on_event, nullptr), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_StartStreamExt(0, &info), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_StopStream(0), ZU_FAILURE);
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(0, 11), ZU_FAILURE);

    EXPECT_EQ(handle, 7U);
    EXPECT_EQ(log.lines().size(), 8U); // one refusal each, no look-up
    EXPECT_THAT(log.lines_of("get_sdkuser"), IsEmpty());
}

TEST(WithoutInit, TheStreamsRestartLooksItsHandleUpAllTheSame)
{
    const log_tap log(1);

    EXPECT_EQ(in_startstream(5), -1);

    EXPECT_TRUE(log.has(0, "get_sdkuser", "sdkuser invalid! index: 5\n"));
}
