// Stream control that reaches the device: the bytes of the three requests, what is remembered of a
// start and when, and the result, which is the device's code as it stands.
//
// Sender and receiver run; the test is the device. In the tests of the reply's shape they don't:
// the test's own socket stands where the sender listens and answers with what no device would send.
#include <climits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "requester.h"
#include "seam.h"
#include "stream_control.h"
#include "worker_stand.h"

using namespace support;

namespace
{

ZU_S32 start(ZU_U32 handle, ZU_U32 stream, ZU_U8 type)
{
    ZU_S_STREAM_INFO_EXT info = {0xC1, stream, 0xC3, type};
    return ZU_NET_DEV_StartStreamExt(handle, &info);
}

// The record's stream_info and sinked, as four words and a flag.
std::vector<ZU_U32> remembered(const zu_sdk_user& user)
{
    return {user.stream_info.u32Channel, user.stream_info.u32Stream, user.stream_info.u32Mode,
            user.stream_info.u8Type, static_cast<ZU_U32>(user.sinked.load())};
}

void set_remembered(zu_sdk_user& user, ZU_U32 stream, ZU_U8 type)
{
    user.stream_info.u32Stream = stream;
    user.stream_info.u8Type = type;
}

struct stream_control : testing::Test {
    still_stand stand{0};

    void SetUp() override
    {
        stand.start_receiver();
        stand.start_sender();
    }
    // Runs a call, plays the device that answers it, and gives the request as it was read.
    template <class Call>
    message request_of(Call call, int32_t answered_with, ZU_S32* result = nullptr)
    {
        auto running = in_background(call);
        const auto request = stand.link.read_request();
        EXPECT_TRUE(request);
        stand.link.send(answer(request.value_or(message()), answered_with));
        const ZU_S32 got = running.get();
        if (result != nullptr) {
            *result = got;
        }
        return request.value_or(message());
    }
    template <class Call>
    ZU_S32 result_of(Call call, int32_t answered_with)
    {
        ZU_S32 result = 0;
        request_of(call, answered_with, &result);
        return result;
    }
};

// A request on the wire: its first eight bytes, a port in network byte order, and the payload.
void expect_wire(const message& request, const std::string& head, const std::string& payload)
{
    EXPECT_EQ(request.raw(), hex(head) + le32(request.wait_port) + hex(payload));
    EXPECT_NE(request.wait_port, 0U);
    EXPECT_EQ(request.wait_port >> 16, 0U);
}

} // namespace

TEST_F(stream_control, AStartIsTwentyBytesWithStreamAndType)
{
    const auto request = request_of([&] { return start(stand.handle(), 3, 7); }, 0);
    expect_wire(request, "01 10 00 00  08 00 00 00", "03 00 00 00  07 00 00 00");
}

TEST_F(stream_control, AStopIsTwentyBytesWithTheRememberedStreamAndType)
{
    set_remembered(*stand.user, 2, 5);
    const auto request = request_of([&] { return ZU_NET_DEV_StopStream(stand.handle()); }, 0);
    expect_wire(request, "11 10 00 00  08 00 00 00", "02 00 00 00  05 00 00 00");
}

TEST_F(stream_control, AStopWithoutAStartStopsStream0OfType0)
{
    const auto request = request_of([&] { return ZU_NET_DEV_StopStream(stand.handle()); }, 0);
    expect_wire(request, "11 10 00 00  08 00 00 00", "00 00 00 00  00 00 00 00");
}

TEST_F(stream_control, AKeyFrameRequestIsSixteenBytesWithTheStreamCountedFrom0)
{
    const char* streams[] = {"00 00 00 00", "01 00 00 00", "02 00 00 00", "03 00 00 00"};
    for (ZU_U32 i = 0; i < 4; i++) {
        const auto request =
            request_of([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 11 + i); }, 0);
        expect_wire(request, "51 10 00 00  04 00 00 00", streams[i]);
    }
}

TEST_F(stream_control, ARepeatedStartIsTheSameTwentyBytesAsAStart)
{
    set_remembered(*stand.user, 1, 4);
    const auto request = request_of([&] { return in_startstream(stand.handle()); }, 0);
    expect_wire(request, "01 10 00 00  08 00 00 00", "01 00 00 00  04 00 00 00");
}

TEST_F(stream_control, AcceptsEveryStreamAndEveryTypeThatThereIs)
{
    for (ZU_U32 stream = 0; stream <= 3; stream++) {
        for (const ZU_U8 type : {1, 2, 3, 4, 5, 7}) {
            const auto request = request_of([&] { return start(stand.handle(), stream, type); }, 0);
            EXPECT_EQ(request.body, le32(stream) + le32(type));
        }
    }
}

// ---- the result --------------------------------------------------------------------------------

TEST_F(stream_control, TheResultIsTheDevicesCodeAsItStands)
{
    for (const int32_t code : {0, 1, -1, 0x12345678, INT_MAX, INT_MIN}) {
        EXPECT_EQ(result_of([&] { return start(stand.handle(), 0, 1); }, code), code);
        EXPECT_EQ(result_of([&] { return ZU_NET_DEV_StopStream(stand.handle()); }, code), code);
        EXPECT_EQ(result_of([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 11); }, code),
                  code);
        EXPECT_EQ(result_of([&] { return in_startstream(stand.handle()); }, code), code);
    }
}

TEST_F(stream_control, TheCodeOfTheReplyIsNotTested)
{
    auto running = in_background([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 12); });
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(make_message(0x1032, request->wait_port, le32(33))));
    EXPECT_EQ(running.get(), 33);
}

// The request blocks are as large as a reply may be, so nothing is written behind them (which the
// address sanitizer would tell).
TEST_F(stream_control, AResponseOf9000BytesFitsItsFirst5120IntoTheRequestsBlock)
{
    const bytes more = pattern(9000 - 16);
    auto running = in_background([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 12); });
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    ASSERT_TRUE(stand.link.send(answer(*request, 44, more)));
    EXPECT_EQ(running.get(), 44);
    EXPECT_EQ(result_of([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 12); }, 45), 45);
}

// ---- what a start leaves behind ----------------------------------------------------------------

TEST_F(stream_control, AStartIsRememberedWholeBeforeItsRequestGoesOut)
{
    auto running = in_background([&] { return start(stand.handle(), 3, 7); });
    const auto request = stand.link.read_request();
    ASSERT_TRUE(request);
    EXPECT_EQ(remembered(*stand.user), (std::vector<ZU_U32>{0xC1, 3, 0xC3, 7, 1}));
    ASSERT_TRUE(stand.link.send(answer(*request, 0)));
    EXPECT_EQ(running.get(), 0);
}

TEST_F(stream_control, AStartThatTheDeviceRefusesStaysRemembered)
{
    EXPECT_EQ(result_of([&] { return start(stand.handle(), 2, 3); }, -5), -5);
    EXPECT_EQ(remembered(*stand.user), (std::vector<ZU_U32>{0xC1, 2, 0xC3, 3, 1}));
}

TEST_F(stream_control, AStartWhoseExchangeFailsStaysRemembered)
{
    const fault failing("sendto", ENOBUFS);
    EXPECT_EQ(start(stand.handle(), 2, 3), -1);
    EXPECT_EQ(remembered(*stand.user), (std::vector<ZU_U32>{0xC1, 2, 0xC3, 3, 1}));
}

TEST_F(stream_control, ALaterStartReplacesWhatIsRemembered)
{
    result_of([&] { return start(stand.handle(), 2, 3); }, 0);
    result_of([&] { return start(stand.handle(), 1, 5); }, 0);
    EXPECT_EQ(remembered(*stand.user), (std::vector<ZU_U32>{0xC1, 1, 0xC3, 5, 1}));
}

TEST_F(stream_control, TheCallersRecordIsReadAndLeftAlone)
{
    ZU_S_STREAM_INFO_EXT info = {8, 2, 9, 3};
    result_of([&] { return ZU_NET_DEV_StartStreamExt(stand.handle(), &info); }, 0);
    EXPECT_EQ(info.u32Channel, 8U);
    EXPECT_EQ(info.u32Stream, 2U);
    EXPECT_EQ(info.u32Mode, 9U);
    EXPECT_EQ(info.u8Type, 3U);
}

TEST_F(stream_control, StopKeyFrameAndRepeatedStartChangeNothingThatIsRemembered)
{
    set_remembered(*stand.user, 1, 2);
    const auto before = remembered(*stand.user);
    result_of([&] { return ZU_NET_DEV_StopStream(stand.handle()); }, 0);
    result_of([&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 13); }, 0);
    result_of([&] { return in_startstream(stand.handle()); }, 0);
    EXPECT_EQ(remembered(*stand.user), before);
    EXPECT_EQ(stand.user->sinked, 0);
}

TEST_F(stream_control, AStopAfterAStartLeavesItToBeRestarted)
{
    result_of([&] { return start(stand.handle(), 2, 3); }, 0);
    result_of([&] { return ZU_NET_DEV_StopStream(stand.handle()); }, 0);
    EXPECT_EQ(remembered(*stand.user), (std::vector<ZU_U32>{0xC1, 2, 0xC3, 3, 1}));
}

// ---- the datagram, and replies of other shapes -------------------------------------------------

namespace
{

struct stream_control_channel : testing::Test {
    worker_stand stand{0};
    loopback_socket desk;

    void SetUp() override
    {
        stand.user->int_port = desk.port();
        stand.user->msgsender_started = 1;
        stand.user->msgrecver_started = 1;
        set_remembered(*stand.user, 3, 5);
    }
    void TearDown() override
    {
        stand.user->msgsender_started = 0;
        stand.user->msgrecver_started = 0;
    }
    template <class Call>
    ZU_S32 result_after(const bytes& reply, Call call, const bytes& expected_request)
    {
        auto running = in_background(call);
        EXPECT_EQ(desk.receive(), expected_request);
        desk.send_to(desk.sender_port(), reply);
        return running.get();
    }
};

const bytes start_3_5 = hex("01 10 00 00  08 00 00 00  00 00 00 00  03 00 00 00  05 00 00 00");
const bytes stop_3_5 = hex("11 10 00 00  08 00 00 00  00 00 00 00  03 00 00 00  05 00 00 00");
const bytes key_frame_2 = hex("51 10 00 00  04 00 00 00  00 00 00 00  02 00 00 00");

} // namespace

TEST_F(stream_control_channel, AnEmptyReplyGivesTheRequestsOwnWordAndWaitPortIsLeft0)
{
    const ZU_U32 handle = stand.handle();
    EXPECT_EQ(result_after(
                  {}, [&] { return start(handle, 3, 5); }, start_3_5),
              3);
    EXPECT_EQ(result_after(
                  {}, [&] { return ZU_NET_DEV_StopStream(handle); }, stop_3_5),
              3);
    EXPECT_EQ(result_after(
                  {}, [&] { return ZU_NET_DEV_MakeKeyFrame(handle, 13); }, key_frame_2),
              2);
    EXPECT_EQ(result_after(
                  {}, [&] { return in_startstream(handle); }, start_3_5),
              3);
}

TEST_F(stream_control_channel, AReplyOf13BytesReplacesOneByteOfTheWord)
{
    const bytes reply = pattern(12) + hex("AA");
    EXPECT_EQ(result_after(
                  reply, [&] { return start(stand.handle(), 3, 5); }, start_3_5),
              0xAA);
}

TEST_F(stream_control_channel, AReplyOf5120BytesIsTaken)
{
    const bytes reply = pattern(12) + le32(99) + pattern(5120 - 16);
    EXPECT_EQ(result_after(
                  reply, [&] { return ZU_NET_DEV_MakeKeyFrame(stand.handle(), 13); }, key_frame_2),
              99);
}
