// Stream data: from the wire to the stream callback, on the receiver thread, with the right data
// type.
//
// The test thread plays the device. A block is known by its four-character flag; one without a
// known flag has the data type of the block before it.
#include <algorithm>
#include <cstdint>
#include <thread>

#include "receiver_kit.h"

using namespace support;

namespace
{

// 1920 x 1080, audio format 3, stream 2, 25 frames/s, 4096 kbit/s.
bytes system_header()
{
    return hex("46 53 59 53  80 07 00 00  38 04 00 00  03 00 00 00"
               "02 00 00 00  19 00 00 00  00 10 00 00");
}

constexpr ZU_U32 av_data = 0;
constexpr ZU_U32 sys_data = 1;
constexpr ZU_U32 key_data = 2;

// The data types of the blocks that these messages become, one each.
std::vector<ZU_U32> types_of(receiver_stand& stand, const bytes& messages, size_t count)
{
    stand.link.send(messages);
    EXPECT_TRUE(stand.seen.wait_for_blocks(count));
    std::vector<ZU_U32> types;
    for (const stream_block& block : stand.seen.blocks()) {
        types.push_back(block.data_type);
    }
    return types;
}

bool has_no_picture_or_sound_info(const zu_sdk_user* user)
{
    return user->video_info.u32Width == 0 && user->video_info.u32Height == 0 &&
           user->audio_info.u32Format == 0;
}

// What a callback sees of its call beyond the bytes.
struct call_seen {
    std::atomic<int> calls{0};
    std::atomic<ZU_U32> handle{0};
    std::atomic<ZU_U8*> data{nullptr};
    std::atomic<ZU_U32> length{0};
    std::atomic<pthread_t> thread{};

    static ZU_S32 on_stream(ZU_U32 handle, ZU_U32 /*type*/, ZU_U8* data, ZU_U32 length,
                            ZU_VOID* self)
    {
        auto* seen = static_cast<call_seen*>(self);
        seen->handle = handle;
        seen->data = data;
        seen->length = length;
        seen->thread = pthread_self();
        seen->calls++;
        return -1;
    }
    void attach(zu_sdk_user* user)
    {
        user->stream_userdata = this;
        user->stream_callback = on_stream;
    }
    bool wait_for_calls(int count) const
    {
        return eventually([&] { return calls >= count; });
    }
};

} // namespace

TEST(ReceiverStream, DeliversASystemHeaderAndTakesNoteOfPictureAndSound)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(hex("00 11 00 00  1c 00 00 00  00 00 00 00") + system_header());
        ASSERT_TRUE(stand.seen.wait_for_blocks(1));
        EXPECT_EQ(stand.seen.blocks()[0].handle, stand.handle());
        EXPECT_EQ(stand.seen.blocks()[0].data_type, sys_data);
        EXPECT_EQ(stand.seen.blocks()[0].body, system_header());
        expect_log_until_shut_down(stand, {trace("dataflag == ZU_NET_DEV_SYS_FLAG\n")});
        EXPECT_EQ(stand.user->video_info.u32Width, 1920U);
        EXPECT_EQ(stand.user->video_info.u32Height, 1080U);
        EXPECT_EQ(stand.user->audio_info.u32Format, 3U);
        EXPECT_EQ(stand.user->stream_header.u32Stream, 0U);
        EXPECT_EQ(stand.user->stream_header.u32FrameRate, 0U);
        EXPECT_EQ(stand.user->stream_header.u32BitRate, 0U);
    }
}

TEST(ReceiverStream, DeliversAKeyBlockAsKeyData)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(hex("00 11 00 00  06 00 00 00  00 00 00 00  45 58 56 43 aa bb"));
        ASSERT_TRUE(stand.seen.wait_for_blocks(1));
        EXPECT_EQ(stand.seen.blocks()[0].data_type, key_data);
        EXPECT_EQ(stand.seen.blocks()[0].body, hex("45 58 56 43 aa bb"));
        expect_log_until_shut_down(stand, {trace("dataflag == ZU_NET_DEV_KEY_FLAG\n")});
    }
}

TEST(ReceiverStream, DeliversVideoAudioAndRawPicturesAsPlainDataWithoutALine)
{
    for (const char* flag : {"KTVF", "KTAF", "VUYV"}) {
        receiver_stand stand(2);
        EXPECT_EQ(types_of(stand, stream_data("EXVC", {}) + stream_data(flag, pattern(50)), 2),
                  (std::vector<ZU_U32>{key_data, av_data}))
            << flag;
        EXPECT_EQ(stand.seen.blocks()[1].body, text(flag) + pattern(50));
        expect_log_until_shut_down(stand, {trace("dataflag == ZU_NET_DEV_KEY_FLAG\n")});
    }
}

TEST(ReceiverStream, AnUnknownFlagKeepsTheDataTypeOfTheBlockBefore)
{
    receiver_stand stand;
    const bytes unknown = stream_data("ABCD", pattern(9));
    EXPECT_EQ(
        types_of(stand,
                 stream_data("EXVC", {}) + unknown + unknown + stream_data("FSYS", {}) + unknown +
                     stream_data("KTVF", {}) + unknown,
                 7),
        (std::vector<ZU_U32>{key_data, key_data, key_data, sys_data, sys_data, av_data, av_data}));
    EXPECT_EQ(stand.seen.blocks()[1].body, text("ABCD") + pattern(9));
}

TEST(ReceiverStream, TheDataTypeOfAnUnknownFlagIsPlainDataAtFirst)
{
    receiver_stand stand;
    EXPECT_EQ(types_of(stand, stream_data("ABCD", {}), 1), (std::vector<ZU_U32>{av_data}));
}

TEST(ReceiverStream, TheDataTypeStartsAnewWithEachReceiver)
{
    receiver_stand stand;
    EXPECT_EQ(types_of(stand, stream_data("EXVC", {}), 1), (std::vector<ZU_U32>{key_data}));
    stand.user->msgrecver_run = 0;
    stand.link.send(heartbeat_answer()); // wakes it
    ASSERT_TRUE(stand.receiver_ended());
    pthread_join(stand.user->msgrecver, nullptr);
    stand.user->msgrecver_unjoined = false;
    stand.start_receiver();
    EXPECT_EQ(types_of(stand, stream_data("ABCD", {}), 2),
              (std::vector<ZU_U32>{key_data, av_data}));
}

TEST(ReceiverStream, OtherMessagesBetweenTwoBlocksLeaveTheDataTypeAlone)
{
    receiver_stand stand;
    EXPECT_EQ(types_of(stand,
                       stream_data("EXVC", {}) + make_message(0x7777, 0, text("KTVF")) +
                           make_message(0x1022, 0, text("KTVF")) + stream_data("ABCD", {}),
                       2),
              (std::vector<ZU_U32>{key_data, key_data}));
}

TEST(ReceiverStream, TheLetterCaseAndOrderOfAFlagMatter)
{
    receiver_stand stand;
    EXPECT_EQ(types_of(stand,
                       stream_data("exvc", {}) + stream_data("CVXE", {}) + stream_data("SYSF", {}),
                       3),
              (std::vector<ZU_U32>{av_data, av_data, av_data}));
}

TEST(ReceiverStream, TakesNoteOfASystemHeaderAsSoonAsItsSixteenBytesArrived)
{
    receiver_stand stand;
    const bytes header = system_header();
    EXPECT_EQ(
        types_of(stand, make_message(0x1100, 0, bytes(header.begin(), header.begin() + 16)), 1),
        (std::vector<ZU_U32>{sys_data}));
    stand.end_workers();
    EXPECT_EQ(stand.user->video_info.u32Width, 1920U);
    EXPECT_EQ(stand.user->video_info.u32Height, 1080U);
    EXPECT_EQ(stand.user->audio_info.u32Format, 3U);
}

TEST(ReceiverStream, DeliversAShorterSystemHeaderAndTakesNoNoteOfIt)
{
    const bytes header = system_header();
    for (const int size : {15, 12, 5, 4}) {
        receiver_stand stand(2);
        const bytes cut(header.begin(), header.begin() + size);
        EXPECT_EQ(types_of(stand, make_message(0x1100, 0, cut), 1),
                  (std::vector<ZU_U32>{sys_data}));
        EXPECT_EQ(stand.seen.blocks()[0].body, cut);
        expect_log_until_shut_down(stand, {trace("dataflag == ZU_NET_DEV_SYS_FLAG\n")});
        EXPECT_TRUE(has_no_picture_or_sound_info(stand.user)) << size;
    }
}

TEST(ReceiverStream, AShortSystemHeaderReadsNothingOfTheMessageBefore)
{
    receiver_stand stand;
    types_of(stand, make_message(0x7777, 0, pattern(40)) + stream_data("FSYS", {}), 1);
    stand.end_workers();
    EXPECT_TRUE(has_no_picture_or_sound_info(stand.user));
}

TEST(ReceiverStream, OtherFlagsLeavePictureAndSoundInfoAlone)
{
    receiver_stand stand;
    types_of(stand, stream_data("EXVC", pattern(24)) + stream_data("KTVF", pattern(24)), 2);
    stand.end_workers();
    EXPECT_TRUE(has_no_picture_or_sound_info(stand.user));
}

TEST(ReceiverStream, ABodyTooShortForAFlagIsDeliveredWithTheCarriedOverType)
{
    for (const int size : {1, 2, 3}) {
        receiver_stand stand;
        const bytes whole = text("EXVC");
        const bytes cut(whole.begin(), whole.begin() + size);
        // The message before leaves the missing letters of the flag in the buffer.
        EXPECT_EQ(types_of(stand,
                           stream_data("KTVF", {}) + make_message(0x7777, 0, whole) +
                               make_message(0x1100, 0, cut) + stream_data("FSYS", {}) +
                               make_message(0x1100, 0, cut),
                           4),
                  (std::vector<ZU_U32>{av_data, av_data, sys_data, sys_data}));
        EXPECT_EQ(stand.seen.blocks()[1].body, cut);
    }
}

TEST(ReceiverStream, AnEmptyBodyIsDeliveredWithTheCarriedOverType)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        EXPECT_EQ(types_of(stand,
                           stream_data("EXVC", {}) + make_message(0x1022, 0, text("FSYS")) +
                               make_message(0x1100, 0, {}),
                           2),
                  (std::vector<ZU_U32>{key_data, key_data}));
        EXPECT_TRUE(stand.seen.blocks()[1].body.empty());
        expect_log_until_shut_down(stand, {trace("dataflag == ZU_NET_DEV_KEY_FLAG\n"),
                                           trace("recv msg ZU_SDK_MSG_RES_HEARTBEAT\n"),
                                           trace("msglen: 0, msgtype: 0x1100\n")});
    }
}

TEST(ReceiverStream, TheBodyLiesInTheReceiversBufferOnAWordBoundary)
{
    call_seen seen;
    receiver_stand stand;
    seen.attach(stand.user);
    stand.link.send(stream_data("KTVF", pattern(7)));
    ASSERT_TRUE(seen.wait_for_calls(1));
    EXPECT_EQ(static_cast<void*>(seen.data), static_cast<void*>(stand.user->msgrecver_buf + 12));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(seen.data.load()) % 4, 0U);
    EXPECT_EQ(seen.length, 11U);
    EXPECT_EQ(seen.handle, stand.handle());
}

TEST(ReceiverStream, CallsOnTheReceiverThreadAndIgnoresTheResult)
{
    call_seen seen; // its callback returns -1
    receiver_stand stand;
    seen.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}) + stream_data("KTVF", {}));
    ASSERT_TRUE(seen.wait_for_calls(2));
    EXPECT_TRUE(pthread_equal(seen.thread, stand.user->msgrecver));
    EXPECT_TRUE(stand.receiver_runs());
}

TEST(ReceiverStream, ReadsNothingMoreUntilTheCallbackReturns)
{
    held_watcher held;
    receiver_stand stand;
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", text("first")));
    ASSERT_TRUE(held.gate.reached());
    stand.link.send(stream_data("KTVF", text("second")));
    EXPECT_TRUE(all_along(
        [&] {
            return held.seen.block_count() == 0 &&
                   std::equal(stand.user->msgrecver_buf + 16, stand.user->msgrecver_buf + 21,
                              "first");
        },
        std::chrono::milliseconds(200)));
    held.gate.let_go();
    ASSERT_TRUE(held.seen.wait_for_blocks(2));
    EXPECT_EQ(held.seen.blocks()[0].body, text("KTVFfirst"));
    EXPECT_EQ(held.seen.blocks()[1].body, text("KTVFsecond"));
}

TEST(ReceiverStream, UsesTheCallbackAndUserPointerOfTheMoment)
{
    watcher other;
    receiver_stand stand;
    ASSERT_TRUE(takes_a_frame(stand));
    stand.user->stream_userdata = &other;
    stand.link.send(stream_data("KTVF", text("for the other")));
    EXPECT_TRUE(other.wait_for_blocks(1));
    EXPECT_EQ(stand.seen.block_count(), 1U);
    stand.end_workers();
}

// ---- no callback, or no user ----

namespace
{

told no_callback_line(const receiver_stand& stand)
{
    return error("stream_callback is NULL for " + handle_text(stand) + "! Cannot process data.\n");
}

told not_used_line(const receiver_stand& stand, int state)
{
    return support::not_used_line(stand, state, "stream_callback");
}

} // namespace

TEST(ReceiverStream, DropsDataWithALineWhenThereIsNoCallback)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->stream_callback = nullptr;
        stand.link.send(stream_data("KTVF", {}));
        ASSERT_TRUE(all_read(stand));
        stand.link.send(heartbeat_answer());
        EXPECT_TRUE(stand.seen.wait_for_event(4));
        expect_log_until_shut_down(stand,
                                   {no_callback_line(stand), trace("msglen: 0, msgtype: 0x1022\n"),
                                    trace("recv msg ZU_SDK_MSG_RES_HEARTBEAT\n")});
        EXPECT_EQ(stand.seen.block_count(), 0U);
    }
}

TEST(ReceiverStream, DropsDataWithALineWhenTheUserIsNotInUse)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->used = -1;
        stand.link.send(stream_data("KTVF", {}) + make_message(0x1100, -1, 0, {}));
        ASSERT_TRUE(all_read(stand));
        expect_log_until_shut_down(stand, {not_used_line(stand, -1),
                                           trace("msglen: -1, msgtype: 0x1100\n"),
                                           error("msg too long, len: -1\n")});
        EXPECT_EQ(stand.seen.block_count(), 0U);
    }
}

TEST(ReceiverStream, WritesBothLinesWithoutCallbackAndUser)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->stream_callback = nullptr;
        stand.user->used = 0;
        stand.link.send(stream_data("KTVF", {}) + make_message(0x1100, -1, 0, {}));
        ASSERT_TRUE(all_read(stand));
        expect_log_until_shut_down(stand, {no_callback_line(stand), not_used_line(stand, 0),
                                           trace("msglen: -1, msgtype: 0x1100\n"),
                                           error("msg too long, len: -1\n")});
    }
}

TEST(ReceiverStream, ClassifiesDataThatNobodyTakes)
{
    receiver_stand stand;
    stand.user->stream_callback = nullptr;
    stand.link.send(make_message(0x1100, 0, system_header()) + stream_data("EXVC", {}) +
                    heartbeat_answer());
    EXPECT_TRUE(stand.seen.wait_for_event(4));
    stand.user->stream_callback = watcher::on_stream;
    EXPECT_EQ(types_of(stand, stream_data("ABCD", {}), 1), (std::vector<ZU_U32>{key_data}));
    stand.end_workers();
    EXPECT_EQ(stand.user->video_info.u32Width, 1920U);
}
