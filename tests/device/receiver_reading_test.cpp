// Framing: from the byte stream to whole messages, however the bytes arrive.
//
// The test thread plays the device and cuts its messages up. A header is completed in one go; a
// body may go back to the wait between its pieces.
#include <algorithm>
#include <cerrno>
#include <mutex>

#include "receiver_kit.h"

using namespace support;

namespace
{

// A frame of some size, known by its number.
bytes frame_body(size_t size, unsigned number)
{
    return text("KTVF") + pattern(size - 4, number);
}

bytes frame(size_t size, unsigned number)
{
    return make_message(0x1100, 0, frame_body(size, number));
}

bytes part(const bytes& whole, size_t from, size_t to)
{
    return {whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to)};
}

} // namespace

TEST(ReceiverReading, DeliversABodyThatArrivesInThreePiecesOnceAndWhole)
{
    receiver_stand stand(1);
    const bytes whole = frame(3000, 1);
    stand.link.send(part(whole, 0, 500));
    ASSERT_TRUE(all_read(stand));
    stand.link.send(part(whole, 500, 501));
    ASSERT_TRUE(all_read(stand));
    EXPECT_EQ(stand.seen.block_count(), 0U);
    stand.link.send(part(whole, 501, whole.size()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.seen.block_count(), 2U);
    EXPECT_EQ(stand.seen.blocks()[0].body, frame_body(3000, 1));
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverReading, DeliversABodyWhoseLastByteComesAlone)
{
    receiver_stand stand;
    const bytes whole = frame(100, 2);
    stand.link.send(part(whole, 0, whole.size() - 1));
    ASSERT_TRUE(all_read(stand));
    EXPECT_EQ(stand.seen.block_count(), 0U);
    stand.link.send(part(whole, whole.size() - 1, whole.size()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_EQ(stand.seen.blocks()[0].body, frame_body(100, 2));
}

TEST(ReceiverReading, ReadsAStreamByteByByte)
{
    loopback_socket caller;
    receiver_stand stand;
    const bytes response = make_message(0x1072, caller.wait_port(), pattern(60));
    stand.link.send_split(frame(40, 1) + heartbeat_answer() + response +
                              make_message(0x7777, 0, pattern(5)) + frame(4, 2),
                          1);
    ASSERT_TRUE(stand.seen.wait_for_blocks(2));
    EXPECT_EQ(stand.seen.blocks()[0].body, frame_body(40, 1));
    EXPECT_EQ(stand.seen.blocks()[1].body, text("KTVF"));
    EXPECT_EQ(caller.receive(), response);
    EXPECT_TRUE(stand.seen.wait_for_event(4));
}

TEST(ReceiverReading, ReadsAStreamWhosePiecesCrossEveryBoundary)
{
    for (const size_t size : {5, 7, 13, 1000}) {
        receiver_stand stand;
        bytes stream;
        for (unsigned i = 0; i < 30; i++) {
            stream = stream + frame(4 + i * 3, i) + heartbeat_answer();
        }
        stand.link.send_split(stream, size);
        ASSERT_TRUE(stand.seen.wait_for_blocks(30));
        for (unsigned i = 0; i < 30; i++) {
            EXPECT_EQ(stand.seen.blocks()[i].body, frame_body(4 + i * 3, i));
        }
        EXPECT_TRUE(stand.seen.wait_for_event(4, 30));
    }
}

TEST(ReceiverReading, ReadsManyMessagesOfOneWriteInOrder)
{
    receiver_stand stand;
    bytes stream;
    for (unsigned i = 0; i < 200; i++) {
        stream = stream + frame(100 + i, i);
    }
    stand.link.send(stream);
    ASSERT_TRUE(stand.seen.wait_for_blocks(200));
    for (unsigned i = 0; i < 200; i++) {
        ASSERT_EQ(stand.seen.blocks()[i].body, frame_body(100 + i, i));
    }
}

TEST(ReceiverReading, ReadsAMebibyteThatArrivesInPieces)
{
    receiver_stand stand;
    stand.link.send_split(frame(1048576, 3), 65521);
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_TRUE(stand.seen.blocks()[0].body == frame_body(1048576, 3));
}

TEST(ReceiverReading, CompletesAHeaderThatArrivesInPieces)
{
    receiver_stand stand(2);
    const bytes whole = frame(50, 1);
    for (const size_t from : {0, 5, 6}) {
        stand.link.send(part(whole, from, from == 0 ? 5 : from == 5 ? 6 : 12));
        ASSERT_TRUE(all_read(stand));
    }
    stand.link.send(part(whole, 12, whole.size()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_EQ(stand.seen.blocks()[0].body, frame_body(50, 1));
}

TEST(ReceiverReading, GoesBackToTheWaitWhenTheBodyIsNotThereYet)
{
    receiver_stand stand(2);
    const bytes whole = frame(50, 1);
    stand.link.send(part(whole, 0, 12));
    ASSERT_TRUE(stand.log.wait_for(again_line));
    stand.link.send(part(whole, 12, whole.size()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    expect_log_until_shut_down(stand, {trace(again_line)});
}

TEST(ReceiverReading, TakesAMessageThatIsThereByOneRead)
{
    const watched_steps steps;
    receiver_stand stand;
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_TRUE(steps.show("wrw"));
}

TEST(ReceiverReading, AsksForTheBodyRightAfterAHeaderThatCameByItself)
{
    const watched_steps steps;
    receiver_stand stand;
    const bytes whole = stream_data("KTVF", pattern(30));
    stand.link.send(bytes(whole.begin(), whole.begin() + 12));
    EXPECT_TRUE(steps.show("wrlw")); // that nothing is there takes no read to tell
    stand.link.send(bytes(whole.begin() + 12, whole.end()));
    EXPECT_TRUE(stand.seen.wait_for_blocks(1));
}

TEST(ReceiverReading, WaitsForTheDeviceAndThePipeForSixSeconds)
{
    receiver_stand stand;
    ASSERT_TRUE(takes_a_frame(stand));
    const before_call waits("ppoll");
    ASSERT_TRUE(takes_a_frame(stand));
    ASSERT_TRUE(eventually([&] { return waits.count() >= 1; }));
    EXPECT_THAT(last_wait().descriptors, testing::ElementsAre(stand.user->ext_sock.load(),
                                                              stand.user->shutdown_pipe_recver[0],
                                                              stand.user->int_sock.load()));
    EXPECT_EQ(last_wait().limit.tv_sec, 6);
    EXPECT_EQ(last_wait().limit.tv_usec, 0);
}

namespace
{

void expect_body_read_is_retried(int error_number, const std::string& line)
{
    for (const int level : log_levels) {
        fault failing("recv", error_number, 2, 1);
        failing.on_thread(receiver_name);
        receiver_stand stand(level);
        EXPECT_TRUE(takes_a_frame_in_two(stand));
        EXPECT_EQ(failing.hits(), 1);
        expect_log_until_shut_down(stand, {trace(line)});
    }
}

} // namespace

TEST(ReceiverReading, RetriesABodyReadThatFindsNothing)
{
    expect_body_read_is_retried(EAGAIN, again_line);
}

TEST(ReceiverReading, RetriesABodyReadThatIsInterrupted)
{
    expect_body_read_is_retried(EINTR, interrupted_line);
}

TEST(ReceiverReading, RetriesAHeaderReadWithoutALineAndWithoutWaiting)
{
    for (const int error_number : {EINTR, EAGAIN}) {
        fault failing("recv", error_number, 1, 5);
        failing.on_thread(receiver_name);
        receiver_stand stand(2);
        EXPECT_TRUE(takes_a_frame(stand));
        EXPECT_EQ(failing.hits(), 5);
        expect_log_until_shut_down(stand, {});
    }
}

TEST(ReceiverReading, DropsAnUnknownTypeWithATraceLine)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(make_message(0x1021, 0, pattern(77)) + make_message(0x1002f, 0, {}) +
                        make_message(0xFFFFFFFF, 0, pattern(3)));
        EXPECT_TRUE(takes_a_frame(stand));
        expect_log_until_shut_down(
            stand, {trace("recv msg unknown:0x1021\n"), trace("msglen: 0, msgtype: 0x1002f\n"),
                    trace("recv msg unknown:0x1002f\n"), trace("recv msg unknown:0xffffffff\n")});
        EXPECT_EQ(stand.seen.block_count(), 1U);
        EXPECT_TRUE(stand.seen.events().empty());
    }
}

TEST(ReceiverReading, TakesRequestCodesFromADeviceForUnknown)
{
    receiver_stand stand(2);
    for (const uint32_t code :
         {0x1001, 0x1011, 0x1031, 0x1041, 0x1051, 0x1061, 0x1071, 0x1101, 0x0}) {
        stand.link.send(make_message(code, 0, le32(0)));
    }
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.log.lines().size(), 10U); // the line on entry, and one each
    EXPECT_TRUE(stand.log.has("recv msg unknown:0x1001\n"));
    EXPECT_TRUE(stand.log.has("recv msg unknown:0x0\n"));
}

TEST(ReceiverReading, AnUrgentByteLeavesTheStreamInStep)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    ASSERT_TRUE(stand.link.send_urgent('!'));
    EXPECT_TRUE(takes_a_frame(stand));
    const bytes whole = frame(300, 1);
    stand.link.send(part(whole, 0, 100));
    ASSERT_TRUE(stand.link.send_urgent('!'));
    stand.link.send(part(whole, 100, 300 + 12));
    ASSERT_TRUE(stand.seen.wait_for_blocks(3));
    EXPECT_EQ(stand.seen.blocks()[2].body, frame_body(300, 1));
    EXPECT_TRUE(stand.log.lines().empty());
}
