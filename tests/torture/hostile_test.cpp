// Devices that lie, one lie a test: what a login to such a device meets, what becomes of it, and
// that nobody else notices.
//
// In every test a witness (hostile_witness.h) receives frames and makes requests all along, and at
// the end the lying devices' logins have been logged out and nothing is left. Each lying device is
// played by the thread that tests it; many of them lie side by side where each lie costs a
// connection.
#include "hostile_kit.h"

using namespace support;
using namespace hostile;

using std::chrono::milliseconds;

namespace
{

const std::vector<int32_t> interesting_lengths = {
    INT_MIN,  INT_MIN + 1, -drained,    -65536,  -13,         -12,          -11,      -1,
    0,        1,           3,           4,       11,          12,           27,       28,
    5107,     5108,        5109,        65494,   65495,       65496,        room - 1, room,
    room + 1, 2 * room,    drained - 1, drained, drained + 1, INT_MAX - 12, INT_MAX};

} // namespace

// ---- the stream stays in step ------------------------------------------------------------------

TEST_F(Hostile, HalfAHeaderIsWaitedForWhateverItsLength)
{
    lie_to_one([](lying_device& d) {
        for (size_t first_part = 1; first_part < 12; first_part++) {
            split_header(d, first_part, milliseconds(20));
        }
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, BodiesThatComeApartFromTheirHeadersAreDeliveredWhole)
{
    lie_to_one([](lying_device& d) {
        for (const size_t piece : {1, 3, 4, 99, 100}) {
            body_apart(d, 200, piece, milliseconds(1));
        }
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, EveryLengthThatCanBeBorneLeavesTheStreamInStep)
{
    lie_to_one([](lying_device& d) {
        for (const uint32_t type : {answer_to_ptz, heartbeat_answer, stream_message, 0x7777U}) {
            for (const int32_t len : interesting_lengths) {
                if (stays_in_step(type, len)) {
                    message_of_length(d, type, len);
                    ASSERT_TRUE(d.in_step()) << std::hex << type << std::dec << ", length " << len;
                }
            }
        }
    });
}

TEST_F(Hostile, EveryOtherLengthCostsTheConnectionAndNoMore)
{
    std::vector<std::pair<uint32_t, int32_t>> messages;
    for (const uint32_t type : {answer_to_ptz, heartbeat_answer, stream_message, 0x7777U}) {
        for (const int32_t len : interesting_lengths) {
            if (!stays_in_step(type, len)) {
                messages.emplace_back(type, len);
            }
        }
    }
    lie_side_by_side(messages.size(), [&](lying_device& d, size_t i) {
        message_of_length(d, messages[i].first, messages[i].second);
        EXPECT_TRUE(d.link_lost()) << messages[i].first << ", length " << messages[i].second;
    });
}

TEST_F(Hostile, FloodsOfUnknownTypesAreDropped)
{
    lie_to_one([](lying_device& d) {
        flood_of_unknown_types(d, 200000);
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, AnswersToRequestsThatWereNeverMadeGoWhereTheyPoint)
{
    lie_to_one([](lying_device& d) {
        answers_to_nobody(d, 50000);
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, AnAnswerOfAnyLengthThatADatagramHoldsIsTheReply)
{
    lie_to_one([](lying_device& d) {
        for (const int32_t len : interesting_lengths) {
            if (len >= -12 && len <= datagram_room) {
                answer_of_length(d, len);
            }
        }
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, AnAnswerThatNoDatagramHoldsLeavesTheRequestToItsLimit)
{
    const std::vector<int32_t> dropped = {room + 1, 4 * room, drained};
    const std::vector<int32_t> fatal = {datagram_room + 1, room};
    lie_side_by_side(dropped.size() + fatal.size(), [&](lying_device& d, size_t i) {
        if (i < dropped.size()) {
            answer_of_length(d, dropped[i]);
            EXPECT_TRUE(d.in_step()) << dropped[i];
        } else {
            answer_of_length(d, fatal[i - dropped.size()]);
            EXPECT_TRUE(d.accept_again()) << fatal[i - dropped.size()];
            EXPECT_TRUE(d.in_step());
        }
    });
}

TEST_F(Hostile, TenThousandHeartbeatAnswersAreTenThousandEvents)
{
    lie_to_one([](lying_device& d) {
        flood_of_heartbeats(d, 10000);
        EXPECT_TRUE(d.in_step());
        EXPECT_EQ(d.seen().count(ZU_NET_DEV_HEARTBEAT), 10000);
    });
}

TEST_F(Hostile, StreamDataWithoutAStartIsDelivered)
{
    lie_to_one([](lying_device& d) {
        frames_without_start(d, 2000);
        EXPECT_TRUE(d.in_step());
        EXPECT_EQ(d.seen().block_count(), 2001U);
    });
}

// ---- the connection is lost --------------------------------------------------------------------

TEST_F(Hostile, GarbageCostsTheConnectionAndTheLoginComesBack)
{
    lie_side_by_side(20, [](lying_device& d, size_t i) {
        garbage(d, 12 << i % 17);
        EXPECT_TRUE(d.link_lost());
        EXPECT_TRUE(d.accept_again());
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, AnUrgentByteCostsTheConnection)
{
    lie_to_one([this](lying_device& d) {
        EXPECT_TRUE(d.in_step());
        urgent_byte(d);
        EXPECT_TRUE(d.link_lost());
        EXPECT_TRUE(log.wait_for("ext_sock exception happened!\n"));
        EXPECT_TRUE(d.accept_again());
        EXPECT_TRUE(d.in_step());
    });
}

TEST_F(Hostile, AnAnswerToPort0CostsTheConnection)
{
    lie_to_one([this](lying_device& d) {
        d.send(make_message(answer_to_ptz, 0, le32(0)));
        EXPECT_TRUE(d.link_lost());
        EXPECT_TRUE(log.wait_for("sendto faill!\n"));
    });
}

TEST_F(Hostile, AResetAtAnyByteOfAConversationIsOnlyALostConnection)
{
    lie_side_by_side(conversation_length() + 1, [](lying_device& d, size_t at) {
        cut_conversation(d, at, ending::abrupt);
        EXPECT_TRUE(d.link_lost()) << at;
    });
}

TEST_F(Hostile, AnEndAtAnyByteOfAConversationIsOnlyALostConnection)
{
    lie_side_by_side(conversation_length() + 1, [](lying_device& d, size_t at) {
        cut_conversation(d, at, ending::orderly);
        EXPECT_TRUE(d.link_lost()) << at;
    });
}

// The receiver waits for the rest of a header although the connection has been closed; Logout needs
// no more than to say so, and otherwise six silent seconds end it.
TEST_F(Hostile, HalfAHeaderBeforeTheEndKeepsTheReceiverForSixSecondsAtMost)
{
    lie_side_by_side(4, [](lying_device& d, size_t i) {
        d.send(bytes(1 + i * 3, 0));
        pause(milliseconds(50));
        end(d, ending::orderly);
        EXPECT_TRUE(d.link_lost());
        if (i % 2 == 1) {
            EXPECT_TRUE(d.accept_again());
            EXPECT_TRUE(d.in_step());
        }
    });
}
