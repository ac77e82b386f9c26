// The low-water mark: while the rest of a long frame is awaited, less of it wakes nobody. Nothing
// but the number of reads may tell.
//
// The test thread plays the device. Calls are counted through the seam.
#include <cerrno>
#include <sys/socket.h>
#include <thread>

#include "receiver_kit.h"

using namespace support;

namespace
{

using steady = std::chrono::steady_clock;

constexpr size_t header = 12;
constexpr size_t size = 30000; // of a long body
constexpr size_t begun = 2000; // bytes of its message that come first
constexpr int lacking = static_cast<int>(header + size - begun);

bytes body_of(unsigned seed)
{
    return text("KTVF") + pattern(size - 4, seed);
}

bytes part(const bytes& whole, size_t from, size_t to)
{
    return {whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(to)};
}

int mark_of(const receiver_stand& stand)
{
    int mark = 0;
    socklen_t length = sizeof(mark);
    getsockopt(stand.user->ext_sock, SOL_SOCKET, SO_RCVLOWAT, &mark, &length);
    return mark;
}

// A receiver in the middle of a long frame.
class receiver_in_a_frame : public receiver_stand
{
public:
    explicit receiver_in_a_frame(int its_level = 1) : receiver_stand(its_level)
    {
        send_up_to(begun);
        EXPECT_TRUE(eventually([&] { return mark_of(*this) == lacking; }));
    }
    bool send_up_to(size_t end)
    {
        const size_t from = sent;
        sent = end;
        return link.send(part(whole, from, end));
    }
    bool takes_the_rest()
    {
        return send_up_to(whole.size()) && seen.wait_for_blocks(1) &&
               seen.blocks()[0].body == body_of(3);
    }

    size_t sent = 0;
    const bytes whole = make_message(0x1100, 0, body_of(3));
};

// Stops the receiver at the fourth look below its mark, once three seconds are over.
struct hold_at_fourth_look {
    turnstile gate;
    int number = 0; // of the look, on the receiver's thread
    const before_call looks{"ioctl", [this] {
                                if (++number == 4) {
                                    gate.pass();
                                }
                            }};
};

} // namespace

TEST(ReceiverMark, APieceOfAFrameWakesNobody)
{
    receiver_in_a_frame stand;
    const before_call reads("recv");
    const before_call looks("ioctl");
    while (stand.sent < 29000) {
        stand.send_up_to(stand.sent + 1000);
        ASSERT_TRUE(all_arrived(stand));
        EXPECT_LE(reads.count(), looks.count()); // one each second, on a slow machine
    }
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_LE(reads.count(), looks.count() + 1);
}

TEST(ReceiverMark, IsOneAgainBeforeAHeader)
{
    receiver_in_a_frame stand;
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(eventually([&] { return mark_of(stand) == 1; }));
    EXPECT_TRUE(takes_a_frame(stand));
}

TEST(ReceiverMark, IsNotSetForWhatComesInAPieceOrTwo)
{
    const before_call marks("setsockopt");
    receiver_stand stand(1);
    const bytes whole = make_message(0x1100, 0, text("KTVF") + pattern(5000));
    const int before = marks.count();
    stand.link.send(part(whole, 0, 1500));
    ASSERT_TRUE(all_read(stand));
    stand.link.send(part(whole, 1500, whole.size()));
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    EXPECT_EQ(marks.count(), before);
}

TEST(ReceiverMark, IsForStreamDataOnly)
{
    loopback_socket caller;
    receiver_stand stand(1);
    const bytes whole = make_message(0x1072, caller.wait_port(), pattern(size));
    const before_call marks("setsockopt");
    stand.link.send(part(whole, 0, begun));
    ASSERT_TRUE(all_read(stand));
    stand.link.send(part(whole, begun, whole.size()));
    EXPECT_EQ(caller.receive(), whole);
    EXPECT_EQ(marks.count(), 0);
}

TEST(ReceiverMark, LeavesTheStreamInStepWhenItCannotBeLowered)
{
    receiver_in_a_frame stand;
    fault stuck("setsockopt", ENOMEM);
    stuck.on_thread(receiver_name);
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(takes_a_frame(stand)); // at the next look
    EXPECT_GE(stuck.hits(), 1);
    EXPECT_TRUE(stand.log.lines().empty());
}

// ---- silence ----

TEST(ReceiverMark, AByteASecondBelowItKeepsTheReceiver)
{
    receiver_in_a_frame stand;
    auto next = steady::now();
    EXPECT_TRUE(all_along(
        [&] {
            if (steady::now() >= next) {
                stand.send_up_to(stand.sent + 1);
                next += std::chrono::seconds(1);
            }
            return stand.receiver_runs();
        },
        std::chrono::milliseconds(9000)));
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverMark, AByteBelowItBeginsTheSixSecondsAnew)
{
    receiver_in_a_frame stand;
    hold_at_fourth_look hold;
    ASSERT_TRUE(hold.gate.reached());
    const auto sent_at = steady::now();
    stand.send_up_to(begun + 1);
    ASSERT_TRUE(all_arrived(stand));
    hold.gate.let_go();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_GE(steady::now() - sent_at, std::chrono::milliseconds(5900));
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

TEST(ReceiverMark, ALookThatFindsNothingIsNoEndOfAWait)
{
    receiver_in_a_frame stand(2);
    const before_call asked("getsockopt");
    hold_at_fourth_look hold; // three would be doubt enough
    ASSERT_TRUE(hold.gate.reached());
    EXPECT_EQ(asked.count(), 0);
    EXPECT_FALSE(stand.log.has_beginning("select timeout"));
    ASSERT_TRUE(stand.send_up_to(stand.whole.size()) && all_arrived(stand));
    hold.gate.let_go();
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(takes_a_frame(stand));
}

TEST(ReceiverMark, SilenceIsTimeAndNotTheNumberOfLooks)
{
    receiver_in_a_frame stand;
    const before_call looks("ioctl", [] {
        std::this_thread::sleep_for(std::chrono::seconds(6)); // sleep: as in a stopped process
    });
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(looks.count(), 1);
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

TEST(ReceiverMark, IsNotUsedWhereNobodyCanCountWhatHasArrived)
{
    receiver_in_a_frame stand;
    fault unknown("ioctl", ENOTTY);
    unknown.on_thread(receiver_name);
    ASSERT_TRUE(eventually([&] { return mark_of(stand) == 1; }));
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverMark, IsNotUsedBehindUrgentData)
{
    receiver_in_a_frame stand;
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(eventually([&] { return mark_of(stand) == 1; }));
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverMark, WhatNobodyCanCountBehindUrgentDataIsNoSilence)
{
    receiver_in_a_frame stand;
    int number = 0; // of the look, on the receiver's thread
    std::atomic<bool> sent{false};
    const before_call look("ioctl", [&] {
        if (++number == 1) {
            stand.link.send_urgent('!');
            stand.send_up_to(begun + 10);
            sent = true;
            std::this_thread::sleep_for(std::chrono::seconds(6)); // sleep: as in a stopped process
        }
    });
    ASSERT_TRUE(eventually([&] { return sent && mark_of(stand) == 1; }));
    EXPECT_TRUE(stand.takes_the_rest());
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverMark, UrgentDataDoesNotBeginTheSixSecondsAnew)
{
    receiver_in_a_frame stand;
    const before_call looks("ioctl");
    ASSERT_TRUE(eventually([&] { return looks.count() >= 2; }));
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_LT(last_wait().limit.tv_sec, 5); // two are over
    expect_log(stand, {error("no msg in 6 seconds!\n"), error("ret: 0, tv_sec: 0\n")});
}

// ---- ends ----

TEST(ReceiverMark, AnEndBelowItIsSeenAtOnce)
{
    receiver_in_a_frame stand;
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("Disconnected (body recv)! Peer closed connection. ret: 0\n")});
}

TEST(ReceiverMark, AResetBelowItIsSeenAtOnce)
{
    receiver_in_a_frame stand;
    stand.link.reset();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("Disconnected (body recv)! recv error: Connection reset by peer "
                             "(errno=104)\n")});
}

TEST(ReceiverMark, AResetBehindBytesBelowItIsToldAsOne)
{
    receiver_in_a_frame stand;
    stand.send_up_to(begun + 10);
    stand.link.reset();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_TRUE(stand.log.has("Disconnected (body recv)! recv error: Connection reset by peer "
                              "(errno=104)\n"));
}
