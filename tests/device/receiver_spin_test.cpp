// The header loop: a header that has begun is completed without going back to the wait, come what
// may, and what ends the loop is decided by the error number left over.
//
// The test thread plays the device. These loops spin by design; but for a few tests that show the
// real thing, each turn is slowed down a little.
#include <algorithm>
#include <cerrno>

#include <unistd.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

using steady = std::chrono::steady_clock;

told socket_error_line(const char* what)
{
    return {log_at_every_level, 0, std::string("Socket error detected: ") + what + "\n"};
}

} // namespace

// ---- a closed connection with an error number left over that asks for another try ----

class ReceiverClosedWithEagain : public at_level
{
};

TEST_P(ReceiverClosedWithEagain, EndsLikeASilentOneAfterSixSeconds)
{
    fault no_body_yet("recv", EAGAIN, 2, 1);
    no_body_yet.on_thread(receiver_name);
    receiver_stand stand(level);
    EXPECT_TRUE(takes_a_frame_in_two(stand));
    EXPECT_EQ(no_body_yet.hits(), 1);
    const before_call slow("recv", dawdle);
    stand.link.hang_up();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {trace(again_line), error("no msg in 6 seconds!\n"),
                       error("ret: 0, tv_sec: 0\n"), exit_line("0")});
}

INSTANTIATE_TEST_SUITE_P(, ReceiverClosedWithEagain, all_levels(), level_name);

TEST(ReceiverClosed, EndsLikeASilentOneWhenEintrIsLeftOver)
{
    fault interrupted("recv", EINTR, 2, 1);
    interrupted.on_thread(receiver_name);
    receiver_stand stand(2);
    EXPECT_TRUE(takes_a_frame_in_two(stand));
    const before_call slow("recv", dawdle);
    const before_call asked("getsockopt");
    stand.link.hang_up();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(asked.count(), 0);
    expect_log(stand, {trace(interrupted_line), error("no msg in 6 seconds!\n"),
                       error("ret: 0, tv_sec: 0\n"), exit_line("0")});
}

TEST(ReceiverClosed, CountsItsSixSecondsFromWhenTheEndArrived)
{
    fault no_body_yet("recv", EAGAIN, 2, 1);
    no_body_yet.on_thread(receiver_name);
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame_in_two(stand));
    EXPECT_TRUE(all_along([&] { return stand.receiver_runs(); }, std::chrono::milliseconds(2500)));
    const before_call slow("recv", dawdle);
    const auto end_sent = steady::now();
    stand.link.hang_up();
    ASSERT_TRUE(stand.receiver_ended());
    // Six by the whole-second clock are more than five.
    EXPECT_GE(steady::now() - end_sent, std::chrono::milliseconds(4900));
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

TEST(ReceiverClosed, EndsLikeASilentOneAfterAMessageInTwoPieces)
{
    receiver_stand stand(2);
    const bytes whole = stream_data("KTVF", pattern(30));
    stand.link.send(bytes(whole.begin(), whole.begin() + 12));
    ASSERT_TRUE(stand.log.wait_for(again_line));
    stand.link.send(bytes(whole.begin() + 12, whole.end()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {trace(again_line), error("no msg in 6 seconds!\n"),
                       error("ret: 0, tv_sec: 0\n"), exit_line("0")});
}

TEST(ReceiverClosed, EndsLikeASilentOneInsideAHeader)
{
    const before_call slow("poll", dawdle); // at a socket with nothing to read
    receiver_stand stand(1);
    stand.link.send(hex("22 10 00 00 00"));
    ASSERT_TRUE(eventually([&] { return slow.count() >= 3; }));
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_TRUE(stand.seen.events().empty());
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

TEST(ReceiverClosed, SpinsOnWhateverRunWordAndPipeSay)
{
    fault no_body_yet("recv", EAGAIN, 2, 1);
    no_body_yet.on_thread(receiver_name);
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame_in_two(stand));
    const before_call slow("recv", dawdle);
    stand.link.hang_up();
    ASSERT_TRUE(eventually([&] { return slow.count() >= 2; }));
    stand.user->msgrecver_run = 0;
    ASSERT_EQ(write(stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

// ---- the pending error of the socket ----

class ReceiverSpinsOnEagain : public at_level
{
};

TEST_P(ReceiverSpinsOnEagain, UntilTheSocketHasAnError)
{
    const before_call slow("recv", dawdle);
    fault nothing("recv", EAGAIN);
    nothing.on_thread(receiver_name);
    receiver_stand stand(level);
    stand.link.reset(); // readable, but every read says that there is nothing
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand,
               {socket_error_line("Connection reset by peer"), header_break_line, exit_line("*")});
}

INSTANTIATE_TEST_SUITE_P(, ReceiverSpinsOnEagain, all_levels(), level_name);

TEST(ReceiverSpins, UntilTheSocketCannotBeAskedForItsError)
{
    const before_call slow("recv", dawdle);
    fault nothing("recv", EAGAIN);
    nothing.on_thread(receiver_name);
    fault mute("getsockopt", ENOBUFS);
    mute.on_thread(receiver_name);
    receiver_stand stand(1);
    stand.link.send(heartbeat_answer());
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(mute.hits(), 1);
    expect_log(stand, {socket_error_line("Success"), header_break_line});
}

TEST(ReceiverSpins, AndAsksForTheErrorOnEveryTurnOnceThreeSecondsArePast)
{
    // All but the atomics belong to the receiver thread until it has ended.
    steady::time_point first_asked;
    int looks_since = 0;
    std::atomic<int> most_looks_between{0};
    const before_call slow("poll", [&] {
        looks_since++;
        dawdle();
    });
    const auto start = steady::now();
    receiver_stand stand(1);
    const before_call asked("getsockopt", [&] {
        if (first_asked == steady::time_point()) {
            first_asked = steady::now();
        } else {
            most_looks_between = std::max(most_looks_between.load(), looks_since);
        }
        looks_since = 0;
    });
    stand.link.send(hex("22 10 00"));
    ASSERT_TRUE(eventually([&] { return asked.count() >= 40; }));
    EXPECT_EQ(most_looks_between, 1);
    stand.link.send(hex("00 00 00 00 00 00 00 00 00"));
    EXPECT_TRUE(stand.seen.wait_for_event(4));
    EXPECT_TRUE(stand.log.lines().empty());
    stand.end_workers();
    EXPECT_GE(first_asked - start, std::chrono::milliseconds(2900));
}

// ---- a header that stays incomplete on a live connection ----

TEST(ReceiverPartialHeader, SpinsWithoutEndAndThenGoesOnUntilTheRunWordIsSeen)
{
    receiver_stand stand(2); // the real thing, at full speed
    stand.link.send(hex("22 10 00 00 00"));
    ASSERT_TRUE(all_read(stand));
    stand.user->msgrecver_run = 0;
    EXPECT_TRUE(all_along([&] { return stand.receiver_runs(); }, std::chrono::milliseconds(7000)));
    stand.link.send(hex("00 00 00 00 00 00 00"));
    EXPECT_TRUE(stand.seen.wait_for_event(4));
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {trace("msglen: 0, msgtype: 0x1022\n"),
                       trace("recv msg ZU_SDK_MSG_RES_HEARTBEAT\n"), exit_line("*")});
}

TEST(ReceiverPartialHeader, SpinsWithoutEndAndThenGoesOnUntilThePipeIsSeen)
{
    const before_call slow("poll", dawdle);
    receiver_stand stand(1);
    const bytes whole = stream_data("KTVF", pattern(5));
    stand.link.send(bytes(whole.begin(), whole.begin() + 11));
    ASSERT_TRUE(all_read(stand));
    ASSERT_EQ(write(stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    EXPECT_TRUE(all_along([&] { return stand.receiver_runs(); }, std::chrono::milliseconds(7000)));
    stand.link.send(bytes(whole.begin() + 11, whole.end()));
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 1U);
    expect_log(stand, {shutdown_line});
}

TEST(ReceiverPartialHeader, IsCompletedAsIfNothingHadHappened)
{
    const before_call slow("poll", dawdle);
    receiver_stand stand(1);
    stand.link.send(hex("22 10 00 00 00"));
    ASSERT_TRUE(all_read(stand));
    EXPECT_TRUE(all_along([&] { return stand.receiver_runs(); }, std::chrono::milliseconds(7000)));
    stand.link.send(hex("00 00 00 00 00 00 00"));
    EXPECT_TRUE(stand.seen.wait_for_event(4));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_TRUE(stand.log.lines().empty());
}
