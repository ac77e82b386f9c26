// Stream control that is refused before anything is sent: each check with its line, their order (of
// several faults only the first is told), and that a refusal changes and sends nothing.
//
// No worker runs here; the test's own socket stands where the sender thread would listen.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "requester.h"
#include "seam.h"
#include "stream_control.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

constexpr char start_name[] = "ZU_NET_DEV_StartStreamExt";
constexpr char stop_name[] = "ZU_NET_DEV_StopStream";
constexpr char key_frame_name[] = "ZU_NET_DEV_MakeKeyFrame";
constexpr char no_user[] = "sdk_user == NULL || sdk_user->used != ZU_SDK_USER_USED\n";
constexpr char no_workers[] =
    "sdk_user->msgsender_started == 0 || sdk_user->msgrecver_started == 0\n";
constexpr char no_key_frame_stream[] = "u32Stream < 11 && u32Stream > 14\n";
constexpr ZU_U32 nobody = 0x43210000 + 77; // a slot without a record

struct refusal : testing::Test {
    worker_stand stand{1};
    loopback_socket desk;

    void SetUp() override
    {
        stand.user->int_port = desk.port();
        stand.user->stream_info.u32Stream = 1;
        stand.user->stream_info.u8Type = 2;
    }
    void TearDown() override
    {
        zu_sdk_inited = 1; // for DeInit
        stand.user->used = ZU_SDK_USER_USED;
        stand.user->msgsender_started = 0;
        stand.user->msgrecver_started = 0;
        EXPECT_EQ(sends.count(), 0) << "something was sent";
        EXPECT_EQ(stand.user->stream_info.u32Stream, 1U);
        EXPECT_EQ(stand.user->stream_info.u8Type, 2U);
        EXPECT_EQ(stand.user->sinked, 0);
    }
    ZU_S32 start(ZU_U32 handle, ZU_U32 stream, ZU_U8 type)
    {
        ZU_S_STREAM_INFO_EXT info = {5, stream, 6, type};
        return ZU_NET_DEV_StartStreamExt(handle, &info);
    }
    // The lines of one entry point since the last look.
    std::vector<std::string> said(const char* who)
    {
        auto lines = stand.log.messages_of(who);
        stand.log.forget();
        return lines;
    }

    const before_call sends{"sendto"};
};

} // namespace

// ---- start -------------------------------------------------------------------------------------

TEST_F(refusal, AStartWithoutInit)
{
    zu_sdk_inited = 0;
    EXPECT_EQ(start(stand.handle(), 0, 1), -1);
    EXPECT_THAT(said(start_name), ElementsAre("zu_sdk_inited == 0 || pstruStreamInfo == 0\n"));
}

TEST_F(refusal, AStartWithoutARecord)
{
    EXPECT_EQ(ZU_NET_DEV_StartStreamExt(stand.handle(), nullptr), -1);
    EXPECT_THAT(said(start_name), ElementsAre("zu_sdk_inited == 0 || pstruStreamInfo == 0\n"));
}

TEST_F(refusal, AStartOfAStreamAbove3)
{
    EXPECT_EQ(start(stand.handle(), 4, 1), -1);
    EXPECT_THAT(said(start_name), ElementsAre("pstruStreamInfo->u32Stream invalid: 4\n"));
    EXPECT_EQ(start(stand.handle(), 0x80000000U, 1), -1);
    EXPECT_THAT(said(start_name), ElementsAre("pstruStreamInfo->u32Stream invalid: -2147483648\n"));
    EXPECT_EQ(start(stand.handle(), 0xFFFFFFFFU, 1), -1);
    EXPECT_THAT(said(start_name), ElementsAre("pstruStreamInfo->u32Stream invalid: -1\n"));
}

TEST_F(refusal, AStartOfAnyTypeBut1To5And7)
{
    for (int type = 0; type <= 255; type++) {
        if ((type >= 1 && type <= 5) || type == 7) {
            continue;
        }
        EXPECT_EQ(start(stand.handle(), 3, static_cast<ZU_U8>(type)), -1);
        EXPECT_THAT(said(start_name),
                    ElementsAre("pstruStreamInfo->u8Type invalid: " + std::to_string(type) + "\n"));
    }
}

TEST_F(refusal, AStartForAHandleOfNobody)
{
    EXPECT_EQ(start(nobody, 0, 1), -1);
    EXPECT_THAT(said(start_name), ElementsAre("sdk_user invalid\n"));
}

TEST_F(refusal, AStartWhileTheLinkIsDown)
{
    for (const int used : {0, 1, ZU_SDK_USER_USED + 1}) {
        stand.user->used = used;
        EXPECT_EQ(start(stand.handle(), 0, 1), -1);
        EXPECT_THAT(said(start_name), ElementsAre("sdk_user invalid\n"));
    }
}

TEST_F(refusal, AStartWithEveryFaultTellsOnlyTheFirst)
{
    stand.user->used = 0;
    EXPECT_EQ(start(stand.handle(), 3, 6), -1);
    EXPECT_THAT(said(start_name), ElementsAre("pstruStreamInfo->u8Type invalid: 6\n"));
    EXPECT_EQ(start(nobody, 4, 6), -1);
    EXPECT_THAT(said(start_name), ElementsAre("pstruStreamInfo->u32Stream invalid: 4\n"));
    zu_sdk_inited = 0;
    EXPECT_EQ(start(nobody, 4, 6), -1);
    EXPECT_THAT(said(start_name), ElementsAre("zu_sdk_inited == 0 || pstruStreamInfo == 0\n"));
    EXPECT_EQ(ZU_NET_DEV_StartStreamExt(nobody, nullptr), -1);
    EXPECT_THAT(said(start_name), ElementsAre("zu_sdk_inited == 0 || pstruStreamInfo == 0\n"));
}

TEST_F(refusal, AStartIsCheckedBeforeItsHandleIsLookedUp)
{
    EXPECT_EQ(start(nobody, 4, 1), -1);
    EXPECT_TRUE(stand.log.lines_of("get_sdkuser").empty());
}

// ---- stop --------------------------------------------------------------------------------------

TEST_F(refusal, AStopWithoutInit)
{
    zu_sdk_inited = 0;
    EXPECT_EQ(ZU_NET_DEV_StopStream(stand.handle()), -1);
    EXPECT_THAT(said(stop_name), ElementsAre("zu_sdk_inited == 0\n"));
}

TEST_F(refusal, AStopForAHandleOfNobodyOrWithTheLinkDown)
{
    EXPECT_EQ(ZU_NET_DEV_StopStream(nobody), -1);
    EXPECT_THAT(said(stop_name), ElementsAre(no_user));
    stand.user->used = 0;
    EXPECT_EQ(ZU_NET_DEV_StopStream(stand.handle()), -1);
    EXPECT_THAT(said(stop_name), ElementsAre(no_user));
}

TEST_F(refusal, AStopWhileAWorkerIsDown)
{
    const int started[][2] = {{0, 0}, {0, 1}, {1, 0}};
    for (const auto& [sender, receiver] : started) {
        stand.user->msgsender_started = sender;
        stand.user->msgrecver_started = receiver;
        EXPECT_EQ(ZU_NET_DEV_StopStream(stand.handle()), -1);
        EXPECT_THAT(said(stop_name), ElementsAre(no_workers));
    }
}

TEST_F(refusal, AStopWithEveryFaultTellsOnlyTheFirst)
{
    stand.user->used = 0; // and both workers are down
    EXPECT_EQ(ZU_NET_DEV_StopStream(stand.handle()), -1);
    EXPECT_THAT(said(stop_name), ElementsAre(no_user));
    zu_sdk_inited = 0;
    EXPECT_EQ(ZU_NET_DEV_StopStream(stand.handle()), -1);
    EXPECT_THAT(said(stop_name), ElementsAre("zu_sdk_inited == 0\n"));
}

// ---- key frame ---------------------------------------------------------------------------------

TEST_F(refusal, AKeyFrameWithoutInit)
{
    zu_sdk_inited = 0;
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(stand.handle(), 11), -1);
    EXPECT_THAT(said(key_frame_name), ElementsAre("zu_sdk_inited == 0\n"));
}

TEST_F(refusal, AKeyFrameOfAnyStreamBut11To14)
{
    for (const ZU_U32 stream : {0U, 1U, 3U, 10U, 15U, 16U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(stand.handle(), stream), -1) << stream;
        EXPECT_THAT(said(key_frame_name), ElementsAre(no_key_frame_stream)) << stream;
    }
}

TEST_F(refusal, AKeyFrameForAHandleOfNobodyOrWithTheLinkDown)
{
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(nobody, 11), -1);
    EXPECT_THAT(said(key_frame_name), ElementsAre(no_user));
    stand.user->used = 0;
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(stand.handle(), 14), -1);
    EXPECT_THAT(said(key_frame_name), ElementsAre(no_user));
}

TEST_F(refusal, AKeyFrameWithEveryFaultTellsOnlyTheFirst)
{
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(nobody, 15), -1);
    EXPECT_THAT(said(key_frame_name), ElementsAre(no_key_frame_stream));
    zu_sdk_inited = 0;
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(nobody, 15), -1);
    EXPECT_THAT(said(key_frame_name), ElementsAre("zu_sdk_inited == 0\n"));
}

// ---- before the first Init, and what is not refused --------------------------------------------

TEST(refusal_before_init, TheThreePublicOperationsTellThatTheLibraryIsNotInitialised)
{
    const log_tap log(1);
    ZU_S_STREAM_INFO_EXT info = {0, 0, 0, 1};
    EXPECT_EQ(ZU_NET_DEV_StartStreamExt(0x43210000, &info), -1);
    EXPECT_EQ(ZU_NET_DEV_StopStream(0x43210000), -1);
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(0x43210000, 11), -1);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].message, "zu_sdk_inited == 0 || pstruStreamInfo == 0\n");
    EXPECT_EQ(lines[1].message, "zu_sdk_inited == 0\n");
    EXPECT_EQ(lines[2].message, "zu_sdk_inited == 0\n");
}

namespace
{

struct allowed : testing::Test {
    worker_stand stand{0};
    loopback_socket desk;

    void SetUp() override
    {
        stand.user->int_port = desk.port(); // the started words are both 0
    }
    template <class Call>
    void expect_sent(Call call)
    {
        auto running = in_background(call);
        EXPECT_TRUE(desk.receive());
        desk.send_to(desk.sender_port(), make_message(0, 0, le32(6)));
        EXPECT_EQ(running.get(), 6);
    }
};

} // namespace

TEST_F(allowed, AStartWhileBothWorkersAreDownAndIsRemembered)
{
    ZU_S_STREAM_INFO_EXT info = {0, 3, 0, 7};
    expect_sent([&] { return ZU_NET_DEV_StartStreamExt(stand.handle(), &info); });
    EXPECT_EQ(stand.user->stream_info.u32Stream, 3U);
    EXPECT_EQ(stand.user->stream_info.u8Type, 7U);
    EXPECT_EQ(stand.user->sinked, 1);
}

TEST_F(allowed, AKeyFrameWhileBothWorkersAreDownAndNothingWasStarted)
{
    expect_sent([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 14); });
}

TEST_F(allowed, ARepeatedStartWithoutInitAndWithBothWorkersDown)
{
    zu_sdk_inited = 0;
    expect_sent([&] { return in_startstream(stand.handle()); });
    zu_sdk_inited = 1; // for DeInit
}
