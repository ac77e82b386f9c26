// Lengths that a device should not send: longer than the receiver's buffer, and negative ones.
//
// The test thread plays the device. The receiver stays in step with the stream wherever that is
// possible, and never touches a byte outside its buffer.
#include <algorithm>
#include <climits>
#include <sys/socket.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

constexpr int room = 1048576; // for a body
constexpr int drained = 16 * 1024 * 1024;
constexpr std::chrono::milliseconds at_once{0};

std::string too_long(int len)
{
    return "msg too long, len: " + std::to_string(len) + "\n";
}

std::string msglen(int len, const char* type)
{
    return "msglen: " + std::to_string(len) + ", msgtype: " + type + "\n";
}

// Whether the field behind the receiver's buffer is still as it was born.
bool nothing_written_behind_the_buffer(const zu_sdk_user* user)
{
    return std::all_of(std::begin(user->msgrecver_buf_a), std::end(user->msgrecver_buf_a),
                       [](char c) { return c == 0; });
}

// Where in the receiver's buffer the bodies lie that the callback gets.
class offsets
{
public:
    explicit offsets(zu_sdk_user* its_user) : user(its_user)
    {
        user->stream_userdata = this;
        user->stream_callback = on_stream;
    }

    std::atomic<int> count{0};
    std::atomic<long> latest{-1};

private:
    static ZU_S32 on_stream(ZU_U32, ZU_U32, ZU_U8* data, ZU_U32, ZU_VOID* self)
    {
        auto* mine = static_cast<offsets*>(self);
        mine->latest = reinterpret_cast<char*>(data) - mine->user->msgrecver_buf;
        mine->count++;
        return 0;
    }
    zu_sdk_user* const user;
};

} // namespace

TEST(ReceiverLengths, DeliversABodyOfExactlyOneMebibyte)
{
    receiver_stand stand(1);
    const bytes body = text("KTVF") + pattern(room - 4);
    stand.link.send(make_message(0x1100, 0, body));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_TRUE(stand.seen.blocks()[0].body == body);
    EXPECT_TRUE(takes_a_frame(stand));
    expect_log_until_shut_down(stand, {});
    EXPECT_TRUE(nothing_written_behind_the_buffer(stand.user));
}

TEST(ReceiverLengths, DropsABodyOfOneByteMoreAndStaysInStep)
{
    for (const int level : {-1, 0, 1}) {
        receiver_stand stand(level);
        stand.link.send(make_message(0x1100, 0, text("KTVF") + pattern(room + 1 - 4)));
        EXPECT_TRUE(takes_a_frame(stand));
        EXPECT_EQ(stand.seen.block_count(), 1U);
        expect_log_until_shut_down(stand, {error(too_long(room + 1))});
        EXPECT_TRUE(nothing_written_behind_the_buffer(stand.user));
    }
}

TEST(ReceiverLengths, TellsOfADroppedBodyAtTheTraceLevelToo)
{
    receiver_stand stand(2);
    stand.link.send(make_message(0x1100, 0, text("KTVF") + pattern(room + 1 - 4)));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.log.count(too_long(room + 1)), 1);
    EXPECT_TRUE(stand.log.has(0, receiver_name, too_long(room + 1)));
}

TEST(ReceiverLengths, DropsABodyOfExactlySixteenMebibytes)
{
    receiver_stand stand(1);
    stand.link.send(make_message(0x1100, drained, 0, {}));
    for (int sent = 0; sent < drained; sent += room) {
        ASSERT_TRUE(stand.link.send(pattern(room)));
    }
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.seen.block_count(), 1U);
    expect_log_until_shut_down(stand, {error(too_long(drained))});
    EXPECT_TRUE(nothing_written_behind_the_buffer(stand.user));
}

TEST(ReceiverLengths, DropsALongBodyThatArrivesInUnevenPieces)
{
    receiver_stand stand(1);
    stand.link.send_split(make_message(0x1100, 0, pattern(2 * room + 77)), 99991);
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.seen.block_count(), 1U);
    EXPECT_EQ(stand.log.count(too_long(2 * room + 77)), 1);
}

TEST(ReceiverLengths, ReadsNoMoreOfALongBodyAtOnceThanItsBufferHolds)
{
    const largest_recv asked;
    receiver_stand stand;
    stand.link.send(make_message(0x1100, 0, pattern(3 * room)));
    EXPECT_TRUE(takes_a_frame(stand));
    stand.end_workers();
    EXPECT_EQ(asked.room(), static_cast<size_t>(msgrecver_buf_size) - 1);
    EXPECT_TRUE(nothing_written_behind_the_buffer(stand.user));
}

TEST(ReceiverLengths, HandsOutAnEmptyBodyInTheBufferTooWhenALongOneLeavesNoRoom)
{
    receiver_stand stand(1);
    offsets handed_out(stand.user);
    const int header = 12;
    const bytes frame = make_message(0x1100, 0, text("KTVF") + pattern(room - header - 4));
    const auto last = frame.end() - 1000;
    stand.link.send({frame.begin(), last});
    ASSERT_TRUE(all_read(stand));
    stand.link.send(bytes(last, frame.end()) + make_message(0x1100, 0, {}));
    ASSERT_TRUE(eventually([&] { return handed_out.count == 2; }));
    EXPECT_LT(handed_out.latest, msgrecver_buf_size);
}

TEST(ReceiverLengths, DropsLongMessagesOneAfterTheOther)
{
    receiver_stand stand(1);
    stand.link.send(make_message(0x1100, 0, pattern(room + 1)) +
                    make_message(0x1100, 0, pattern(room + 2)));
    EXPECT_TRUE(takes_a_frame(stand));
    expect_log_until_shut_down(stand, {error(too_long(room + 1)), error(too_long(room + 2))});
}

TEST(ReceiverLengths, DropsALongMessageWhateverItsType)
{
    loopback_socket caller;
    receiver_stand stand(1);
    for (const uint32_t type : {0x1072, 0x1022, 0x7777}) {
        stand.link.send(make_message(type, caller.wait_port(), pattern(room + 1)));
    }
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_FALSE(caller.receive(at_once));
    EXPECT_TRUE(stand.seen.events().empty());
    expect_log_until_shut_down(
        stand, {error(too_long(room + 1)), error(too_long(room + 1)), error(too_long(room + 1))});
}

TEST(ReceiverLengths, ADroppedMessageLeavesTheDataTypeAlone)
{
    receiver_stand stand;
    stand.link.send(stream_data("KTVF", {}) +
                    make_message(0x1100, 0, text("EXVC") + pattern(room)) +
                    stream_data("????", {}));
    ASSERT_TRUE(stand.seen.wait_for_blocks(2));
    EXPECT_EQ(stand.seen.blocks()[1].data_type, 0U);
}

TEST(ReceiverLengths, EndsAboveSixteenMebibytes)
{
    for (const int len : {drained + 1, INT_MAX}) {
        for (const int level : log_levels) {
            receiver_stand stand(level);
            stand.link.send(make_message(0x1100, len, 0, pattern(1000)));
            ASSERT_TRUE(stand.receiver_ended());
            EXPECT_EQ(stand.seen.block_count(), 0U);
            expect_log(stand, {error(too_long(len)), exit_line("-1")});
        }
    }
}

TEST(ReceiverLengths, EndsWhenThePeerClosesInTheMiddleOfADroppedBody)
{
    receiver_stand stand(1);
    stand.link.send(make_message(0x1100, 2 * room, 0, pattern(5000)));
    ASSERT_TRUE(all_read(stand));
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error(too_long(2 * room)),
                       error("Disconnected (body recv)! Peer closed connection. ret: 0\n")});
}

TEST(ReceiverLengths, RelaysElevenBytesOfAResponseOfLengthMinusOne)
{
    for (const int level : log_levels) {
        loopback_socket caller;
        receiver_stand stand(level);
        const bytes response = make_message(0x1062, -1, caller.wait_port(), {});
        stand.link.send(response);
        EXPECT_EQ(caller.receive(), bytes(response.begin(), response.begin() + 11));
        expect_log_until_shut_down(stand, {trace(msglen(-1, "0x1062")),
                                           trace("recv msg ZU_SDK_MSG_RES_SETCONFIG:1\n"),
                                           sendto_line(caller.wait_port(), 11)});
    }
}

TEST(ReceiverLengths, RelaysAnEmptyDatagramForAResponseOfLengthMinusTwelve)
{
    for (const int level : log_levels) {
        loopback_socket caller;
        receiver_stand stand(level);
        stand.link.send(make_message(0x1002, -12, caller.wait_port(), {}));
        EXPECT_EQ(caller.receive(), bytes());
        EXPECT_TRUE(takes_a_frame(stand));
        expect_log_until_shut_down(stand, {trace(msglen(-12, "0x1002")),
                                           trace("recv msg ZU_SDK_MSG_RES_STARTSTREAM:1\n"),
                                           sendto_line(caller.wait_port(), 0)});
    }
}

TEST(ReceiverLengths, EndsAsAFailedSendBelowMinusTwelve)
{
    for (const int len : {-13, INT_MIN}) {
        for (const int level : log_levels) {
            loopback_socket caller;
            const before_call sends("sendto");
            receiver_stand stand(level);
            stand.link.send(make_message(0x1042, len, caller.wait_port(), {}));
            ASSERT_TRUE(stand.receiver_ended());
            EXPECT_EQ(sends.count(), 0);
            expect_log(stand,
                       {trace(msglen(len, "0x1042")), trace("recv msg ZU_SDK_MSG_RES_PRESET:1\n"),
                        sendto_line(caller.wait_port(), len + 12), error("sendto faill!\n"),
                        exit_line("-1")});
        }
    }
}

TEST(ReceiverLengths, DropsStreamDataOfNegativeLengthAndGoesOn)
{
    for (const int len : {-1, -12, -13, INT_MIN}) {
        for (const int level : log_levels) {
            receiver_stand stand(level);
            stand.link.send(make_message(0x1100, len, 0, {}));
            EXPECT_TRUE(takes_a_frame(stand));
            EXPECT_EQ(stand.seen.block_count(), 1U);
            expect_log_until_shut_down(stand, {trace(msglen(len, "0x1100")), error(too_long(len))});
        }
    }
}

TEST(ReceiverLengths, AnswersAHeartbeatOfNegativeLengthWithItsEvent)
{
    for (const int len : {-1, INT_MIN}) {
        receiver_stand stand(2);
        stand.link.send(make_message(0x1022, len, 0, {}));
        EXPECT_TRUE(stand.seen.wait_for_event(4));
        expect_log_until_shut_down(
            stand, {trace(msglen(len, "0x1022")), trace("recv msg ZU_SDK_MSG_RES_HEARTBEAT\n")});
    }
}

TEST(ReceiverLengths, DropsAnUnknownTypeOfNegativeLengthAndGoesOn)
{
    for (const int len : {-1, INT_MIN}) {
        receiver_stand stand(2);
        stand.link.send(make_message(0x7777, len, 0, {}));
        EXPECT_TRUE(takes_a_frame(stand));
        expect_log_until_shut_down(
            stand, {trace(msglen(len, "0x7777")), trace("recv msg unknown:0x7777\n")});
    }
}
