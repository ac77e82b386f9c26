// The sender thread's heartbeats: their bytes, when they go out, and what happens when one can't.
//
// The clock of the rule counts whole seconds: a heartbeat goes out once it shows three more than at
// the last request or heartbeat. It stands still here but for let_pass.
#include <optional>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

const bytes first_heartbeat = hex("21 10 00 00  00 00 00 00  00 00 00 00");

struct sender_heartbeat : testing::Test {
    still_stand stand{1};
    loopback_socket requester;

    // From here on the first heartbeat is due in three seconds.
    void start()
    {
        stand.start_sender();
    }
    void start_until_heartbeat_is_due()
    {
        start();
        stand.let_pass(3);
    }
    void request(const bytes& datagram)
    {
        ASSERT_TRUE(requester.send_to(stand.int_port(), datagram));
    }
    // Two seconds without a heartbeat, by two whole passes of the sender, and a third with one.
    bytes heartbeat_in_three_seconds()
    {
        stand.let_pass(2);
        const before_call sends("send");
        const before_call waits("ppoll");
        EXPECT_TRUE(eventually([&] { return waits.count() >= 3; }));
        EXPECT_EQ(sends.count(), 0);
        stand.clock.advance(1);
        return stand.link.read_bytes(12);
    }
    std::vector<std::string> said()
    {
        return stand.log.messages_of(sender_thread);
    }
};

// Sending fails on the sender thread, from the first heartbeat on.
struct failing_send : fault {
    explicit failing_send(int with, int so_often = for_ever) : fault("send", with, 1, so_often)
    {
        on_thread(sender_thread);
    }
};

} // namespace

TEST_F(sender_heartbeat, IsTwelveBytesOfTypeAndLengthNull)
{
    start_until_heartbeat_is_due();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
}

TEST_F(sender_heartbeat, GoesOutEveryThreeSeconds)
{
    start();
    for (int i = 1; i <= 3; i++) {
        EXPECT_EQ(heartbeat_in_three_seconds(), first_heartbeat) << i;
    }
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST_F(sender_heartbeat, KeepsTheWaitPortOfTheLastRequest)
{
    start();
    request(start_datagram());
    EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
    EXPECT_EQ(heartbeat_in_three_seconds(), stamped(first_heartbeat, requester.port()));
}

TEST_F(sender_heartbeat, IsPutOffByARequest)
{
    start();
    stand.let_pass(2);
    request(start_datagram());
    EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
    EXPECT_EQ(heartbeat_in_three_seconds(), stamped(first_heartbeat, requester.port()));
}

TEST_F(sender_heartbeat, IsPutOffByADatagramThatIsTooShort)
{
    start();
    stand.let_pass(2);
    request(pattern(5));
    ASSERT_TRUE(stand.log.wait_for("msg too short:5\n"));
    EXPECT_EQ(heartbeat_in_three_seconds(), first_heartbeat);
}

TEST_F(sender_heartbeat, IsPutOffByADatagramThatCouldNotBeRead)
{
    fault unreadable("recvfrom", ENOMEM, 1, 1);
    unreadable.returning(-1);
    start();
    stand.let_pass(2);
    request(pattern(5)); // one failed read, then one of five bytes
    ASSERT_TRUE(stand.log.wait_for("msg too short:5\n"));
    EXPECT_TRUE(stand.log.has("recv data msg fail!\n"));
    EXPECT_EQ(heartbeat_in_three_seconds(), first_heartbeat);
}

// ---- when it can't be sent ---------------------------------------------------------------------

TEST_F(sender_heartbeat, IsTriedAgainOnceAfterAFullBuffer)
{
    const failing_send full(EAGAIN, 1);
    start_until_heartbeat_is_due();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_EQ(full.hits(), 1);
    EXPECT_TRUE(said().empty());
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(sender_heartbeat, IsTriedAgainTwiceAfterAFullBufferAndAnInterruption)
{
    const failing_send full(EAGAIN, 1);
    const failing_send interrupted(EINTR, 1);
    start_until_heartbeat_is_due();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_EQ(full.hits() + interrupted.hits(), 2);
    EXPECT_TRUE(said().empty());
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(sender_heartbeat, CountsFromTheTryThatWorked)
{
    const before_call tries("send");
    const failing_send full(EAGAIN, 1);
    fault pause("usleep", 0);
    pause.on_thread(sender_thread).on_descriptor(100000).returning(0);
    const before_call pauses("usleep", [&] {
        if (pause.hits() == 0) {
            stand.clock.advance(1); // between the two tries
        }
    });
    start_until_heartbeat_is_due();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_EQ(heartbeat_in_three_seconds(), first_heartbeat);
    EXPECT_EQ(tries.count(), 3);
}

TEST_F(sender_heartbeat, ThreeTriesAgainstAFullBufferEndTheThread)
{
    const failing_send full(EAGAIN);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(full.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send failed after 2 retries: "
                                    "Resource temporarily unavailable\n"));
}

TEST_F(sender_heartbeat, ThreeInterruptedTriesEndTheThread)
{
    const failing_send interrupted(EINTR);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(interrupted.hits(), 3);
    EXPECT_THAT(said(),
                ElementsAre("Heart beat send failed after 2 retries: Interrupted system call\n"));
}

TEST_F(sender_heartbeat, NothingSentCountsAsAFailedTry)
{
    failing_send nothing(EAGAIN);
    nothing.returning(0);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(nothing.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send failed after 2 retries: "
                                    "Resource temporarily unavailable\n"));
}

TEST_F(sender_heartbeat, AHardErrorOfARetryEndsTheThreadAtOnce)
{
    const failing_send broken(EPIPE);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(broken.hits(), 2);
    EXPECT_THAT(said(), ElementsAre("Heart beat send error: Broken pipe\n",
                                    "Heart beat send failed after 2 retries: Broken pipe\n"));
}

TEST_F(sender_heartbeat, AHardErrorOfTheLastRetryEndsTheThread)
{
    const failing_send full(EAGAIN, 2);
    const failing_send broken(EPIPE);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(full.hits() + broken.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send error: Broken pipe\n",
                                    "Heart beat send failed after 2 retries: Broken pipe\n"));
}

TEST_F(sender_heartbeat, AConnectionThatIsShutForWritingEndsTheThread)
{
    start();
    shutdown(stand.user->ext_sock, SHUT_WR);
    stand.let_pass(3);
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("Heart beat send error: Broken pipe\n",
                                    "Heart beat send failed after 2 retries: Broken pipe\n"));
}

TEST_F(sender_heartbeat, RetriesAreATenthOfASecondApart)
{
    fault pause("usleep", 0);
    pause.on_thread(sender_thread).on_descriptor(100000).returning(0);
    const before_call pauses("usleep");
    const failing_send full(EAGAIN);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(pause.hits(), 2);
    EXPECT_EQ(pauses.count(), 3); // and the one at the end of the thread
}

TEST_F(sender_heartbeat, ASocketErrorAfterAFailedTryEndsTheThreadWithoutRetries)
{
    std::optional<fault> reset; // the error comes up with the failed send, not before
    const before_call tries("send", [&] {
        reset.emplace("getsockopt", ECONNRESET);
        reset->on_thread(sender_thread).returning(0);
    });
    const failing_send failing(EAGAIN);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(tries.count(), 1);
    EXPECT_THAT(said(), ElementsAre("Socket error detected: Connection reset by peer\n"));
}

TEST_F(sender_heartbeat, ASocketErrorThatCannotBeReadAfterAFailedTryEndsTheThread)
{
    std::optional<fault> unreadable;
    const before_call tries("send", [&] {
        unreadable.emplace("getsockopt", EBADF);
        unreadable->on_thread(sender_thread);
    });
    const failing_send failing(EAGAIN);
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(tries.count(), 1);
    EXPECT_THAT(said(), ElementsAre("Socket error detected: Success\n"));
}

// ---- a device that does not read ---------------------------------------------------------------

namespace
{

// Whether all that is queued for sending is unsent. Nothing is under way then, so no
// acknowledgement makes room any more.
bool nothing_goes_out(int fd)
{
    int unacknowledged = 0;
    int unsent = 0;
    ioctl(fd, SIOCOUTQ, &unacknowledged);
    ioctl(fd, SIOCOUTQNSD, &unsent);
    return unsent > 0 && unsent == unacknowledged;
}

// Fills the connection to a device that does not read, until not a byte more goes in.
void fill(const worker_stand& stand)
{
    const int fd = stand.user->ext_sock;
    const bytes waste(1024);
    ASSERT_TRUE(eventually([&] {
        while (send(fd, waste.data(), waste.size(), MSG_DONTWAIT) > 0) {
        }
        return nothing_goes_out(fd) && send(fd, waste.data(), 1, MSG_DONTWAIT) == -1;
    }));
}

} // namespace

TEST_F(sender_heartbeat, AStalledDeviceEndsTheThreadAfterTwoRetriesOfThreeSeconds)
{
    const before_call tries("send");
    fill(stand);
    const auto begun = std::chrono::steady_clock::now();
    start_until_heartbeat_is_due();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(tries.count(), 3);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(9)); // 3 blocked sends
    EXPECT_THAT(said(), ElementsAre("Heart beat send failed after 2 retries: "
                                    "Resource temporarily unavailable\n"));
}

TEST_F(sender_heartbeat, ARequestToAStalledDeviceEndsTheThreadAfterThreeSeconds)
{
    fill(stand);
    const auto begun = std::chrono::steady_clock::now();
    start();
    request(start_datagram());
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(2900));
    EXPECT_THAT(said(), ElementsAre("send faill!\n"));
}
