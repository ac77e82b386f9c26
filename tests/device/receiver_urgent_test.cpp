// Urgent data: the receiver notes it for the sender, whose end it is, and goes on as if there were
// none.
//
// The test thread plays the device.
#include <sys/socket.h>
#include <unistd.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

bool noted(const receiver_stand& stand)
{
    return eventually([&] { return stand.user->link->urgent_data.load(); });
}

} // namespace

TEST(ReceiverUrgent, AByteByItselfIsNoted)
{
    receiver_stand stand;
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_FALSE(stand.user->link->urgent_data);
    ASSERT_TRUE(stand.link.send_urgent('!'));
    EXPECT_TRUE(noted(stand));
}

TEST(ReceiverUrgent, AByteByItselfEndsNoWait)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    const before_call waits("ppoll");
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(noted(stand));
    ASSERT_TRUE(eventually([&] { return waits.count() >= 1; })); // it goes on
    EXPECT_LT(last_wait().limit.tv_sec, 6);
    // And it wakes the receiver no more.
    EXPECT_TRUE(all_along([&] { return waits.count() <= 2; }, std::chrono::milliseconds(300)));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST(ReceiverUrgent, AByteBetweenDataIsNotedBeforeItIsPassed)
{
    held_watcher held;
    receiver_stand stand;
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(stand.link.send(stream_data("KTVF", {})));
    ASSERT_TRUE(all_arrived(stand));
    held.gate.let_go();
    EXPECT_TRUE(held.seen.wait_for_blocks(3));
    EXPECT_TRUE(stand.user->link->urgent_data);
}

TEST(ReceiverUrgent, IsLookedForBeforeAReadThatNoWaitPrecedes)
{
    receiver_stand stand;
    const before_call slow("poll", dawdle);
    stand.link.send(hex("22 10 00"));
    ASSERT_TRUE(eventually([&] { return slow.count() >= 3; })); // in the midst of a header
    const before_call waits("ppoll");
    ASSERT_TRUE(stand.link.send_urgent('!'));
    EXPECT_TRUE(noted(stand));
    EXPECT_EQ(waits.count(), 0);
}

TEST(ReceiverUrgent, DoesNotCountAmongWhatAWaitHasFound)
{
    held_watcher held;
    receiver_stand stand(2);
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(all_arrived(stand));
    ASSERT_EQ(write(stand.user->shutdown_pipe_recver[1], "x", 1), 1);
    held.gate.let_go();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_TRUE(stand.user->link->urgent_data);
    expect_log(stand, {shutdown_line, exit_line("1")});
}

TEST(ReceiverUrgent, EndsTheSenderWithItsLineAndNotTheReceiver)
{
    receiver_stand stand(1);
    stand.start_sender();
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.log.messages_of("sdk_msgsender_main"),
              std::vector<std::string>{"ext_sock exception happened!\n"});
    EXPECT_TRUE(stand.log.lines_of(receiver_name).empty());
}

TEST(ReceiverUrgent, IsForgottenWithItsLink)
{
    link_pool links = {};
    device_link* link = link_open(links, dup(0));
    link->urgent_data = true;
    link_drop(link);
    EXPECT_EQ(link_open(links, dup(0)), link);
    EXPECT_FALSE(link->urgent_data);
    link_drop(link);
}

TEST(ReceiverUrgent, EndsTheSenderThoughTheReceiverIsHeldUp)
{
    held_watcher held;
    receiver_stand stand(1);
    stand.start_sender();
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    ASSERT_TRUE(stand.link.send_urgent('!'));
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_FALSE(stand.user->link->urgent_data);
    EXPECT_EQ(stand.log.messages_of("sdk_msgsender_main"),
              std::vector<std::string>{"ext_sock exception happened!\n"});
    held.gate.let_go();
    EXPECT_TRUE(held.seen.wait_for_blocks(1));
}

TEST(ReceiverUrgent, IsNotMissedBehindAMarkThatAMessageHasLeft)
{
    receiver_stand stand(1);
    const bytes whole = stream_data("KTVF", pattern(30000));
    stand.link.send(bytes(whole.begin(), whole.begin() + 2000));
    ASSERT_TRUE(all_read(stand));
    const before_call looks("poll", dawdle);
    stand.link.send(bytes(whole.begin() + 2000, whole.end()) + hex("22 10 00")); // a header begins
    ASSERT_TRUE(stand.seen.wait_for_blocks(1));
    ASSERT_TRUE(eventually([&] { return looks.count() >= 3; }));
    int mark = 0;
    socklen_t length = sizeof(mark);
    getsockopt(stand.user->ext_sock, SOL_SOCKET, SO_RCVLOWAT, &mark, &length);
    EXPECT_EQ(mark, 1);
    ASSERT_TRUE(stand.link.send_urgent('!'));
    EXPECT_TRUE(noted(stand));
}
