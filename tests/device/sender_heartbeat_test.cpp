// The sender thread's heartbeats: their bytes, when they go out, and what happens when one can't.
//
// The clock of the rule counts whole seconds: a heartbeat goes out once it shows three more than at
// the last request or heartbeat. Times are therefore compared in whole seconds of the same clock,
// and only ever as "not before".
#include <ctime>
#include <optional>

#include <poll.h>
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
    worker_stand stand{1};
    loopback_socket requester;
    time_t before_start = 0;

    void start()
    {
        before_start = time(nullptr);
        stand.start_sender();
    }
    void request(const bytes& datagram)
    {
        ASSERT_TRUE(requester.send_to(stand.int_port(), datagram));
    }
    // What the device has been sent so far, without waiting for more.
    bytes sent_so_far()
    {
        bytes data(100000);
        const ssize_t got = recv(stand.link.socket(), data.data(), data.size(), MSG_DONTWAIT);
        data.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return data;
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
    start();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
}

TEST_F(sender_heartbeat, GoesOutAboutEveryThreeSeconds)
{
    start();
    for (int i = 1; i <= 3; i++) {
        EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
        EXPECT_GE(time(nullptr) - before_start, 3 * i);
    }
    EXPECT_TRUE(stand.log.lines().empty());
}

TEST_F(sender_heartbeat, KeepsTheWaitPortOfTheLastRequest)
{
    start();
    request(start_datagram());
    EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
    EXPECT_EQ(stand.link.read_bytes(12), stamped(first_heartbeat, requester.port()));
}

TEST_F(sender_heartbeat, IsPutOffByARequest)
{
    start();
    ASSERT_TRUE(eventually([&] { return time(nullptr) - before_start >= 2; }));
    const time_t at = time(nullptr);
    request(start_datagram());
    ASSERT_TRUE(stand.link.read_request());
    const auto next = stand.link.read_message();
    ASSERT_TRUE(next);
    EXPECT_EQ(next->type, 0x1021U);
    EXPECT_GE(time(nullptr) - at, 3);
}

TEST_F(sender_heartbeat, IsPutOffByADatagramThatIsTooShort)
{
    start();
    ASSERT_TRUE(eventually([&] { return time(nullptr) - before_start >= 2; }));
    const time_t at = time(nullptr);
    request(pattern(5));
    ASSERT_TRUE(stand.log.wait_for("msg too short:5\n"));
    sent_so_far();
    EXPECT_EQ(stand.link.read_bytes(12).size(), 12U);
    EXPECT_GE(time(nullptr) - at, 3);
}

TEST_F(sender_heartbeat, IsPutOffByADatagramThatCouldNotBeRead)
{
    fault unreadable("recvfrom", ENOMEM, 1, 1);
    unreadable.returning(-1);
    start();
    ASSERT_TRUE(eventually([&] { return time(nullptr) - before_start >= 2; }));
    const time_t at = time(nullptr);
    request(pattern(5)); // one failed read, then one of five bytes
    ASSERT_TRUE(stand.log.wait_for("msg too short:5\n"));
    EXPECT_TRUE(stand.log.has("recv data msg fail!\n"));
    sent_so_far();
    EXPECT_EQ(stand.link.read_bytes(12).size(), 12U);
    EXPECT_GE(time(nullptr) - at, 3);
}

// ---- when it can't be sent ---------------------------------------------------------------------

TEST_F(sender_heartbeat, IsTriedAgainOnceAfterAFullBuffer)
{
    const failing_send full(EAGAIN, 1);
    start();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_EQ(full.hits(), 1);
    EXPECT_TRUE(said().empty());
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(sender_heartbeat, IsTriedAgainTwiceAfterAFullBufferAndAnInterruption)
{
    const failing_send full(EAGAIN, 1);
    const failing_send interrupted(EINTR, 1);
    start();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_EQ(full.hits() + interrupted.hits(), 2);
    EXPECT_TRUE(said().empty());
    EXPECT_TRUE(stand.sender_runs());
}

TEST_F(sender_heartbeat, CountsFromTheTryThatWorked)
{
    std::atomic<time_t> at{0};
    const before_call tries("send", [&] { at = time(nullptr); });
    const failing_send full(EAGAIN, 1);
    start();
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    const time_t first = at;
    EXPECT_EQ(stand.link.read_bytes(12), first_heartbeat);
    EXPECT_GE(time(nullptr) - first, 3);
    EXPECT_EQ(tries.count(), 3);
}

TEST_F(sender_heartbeat, ThreeTriesAgainstAFullBufferEndTheThread)
{
    const failing_send full(EAGAIN);
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(full.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send failed after 2 retries: "
                                    "Resource temporarily unavailable\n"));
}

TEST_F(sender_heartbeat, ThreeInterruptedTriesEndTheThread)
{
    const failing_send interrupted(EINTR);
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(interrupted.hits(), 3);
    EXPECT_THAT(said(),
                ElementsAre("Heart beat send failed after 2 retries: Interrupted system call\n"));
}

TEST_F(sender_heartbeat, NothingSentCountsAsAFailedTry)
{
    failing_send nothing(EAGAIN);
    nothing.returning(0);
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(nothing.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send failed after 2 retries: "
                                    "Resource temporarily unavailable\n"));
}

TEST_F(sender_heartbeat, AHardErrorOfARetryEndsTheThreadAtOnce)
{
    const failing_send broken(EPIPE);
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(broken.hits(), 2);
    EXPECT_THAT(said(), ElementsAre("Heart beat send error: Broken pipe\n",
                                    "Heart beat send failed after 2 retries: Broken pipe\n"));
}

TEST_F(sender_heartbeat, AHardErrorOfTheLastRetryEndsTheThread)
{
    const failing_send full(EAGAIN, 2);
    const failing_send broken(EPIPE);
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(full.hits() + broken.hits(), 3);
    EXPECT_THAT(said(), ElementsAre("Heart beat send error: Broken pipe\n",
                                    "Heart beat send failed after 2 retries: Broken pipe\n"));
}

TEST_F(sender_heartbeat, AConnectionThatIsShutForWritingEndsTheThread)
{
    start();
    shutdown(stand.user->ext_sock, SHUT_WR);
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
    start();
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
    start();
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
    start();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(tries.count(), 1);
    EXPECT_THAT(said(), ElementsAre("Socket error detected: Success\n"));
}

// ---- a device that does not read ---------------------------------------------------------------

namespace
{

void make_small(int fd, int option)
{
    const int size = 4096;
    setsockopt(fd, SOL_SOCKET, option, &size, sizeof(size));
}

// Fills the connection to a device that does not read, until not a byte more goes in.
void fill(const worker_stand& stand)
{
    const int fd = stand.user->ext_sock;
    make_small(stand.link.socket(), SO_RCVBUF);
    make_small(fd, SO_SNDBUF);
    const bytes waste(1024);
    ASSERT_TRUE(eventually([&] {
        while (send(fd, waste.data(), waste.size(), MSG_DONTWAIT) > 0) {
        }
        return all_along([&] { return send(fd, waste.data(), 1, MSG_DONTWAIT) == -1; },
                         std::chrono::milliseconds(300));
    }));
}

} // namespace

TEST_F(sender_heartbeat, AStalledDeviceEndsTheThreadAfterTwoRetriesOfThreeSeconds)
{
    const before_call tries("send");
    fill(stand);
    const auto begun = std::chrono::steady_clock::now();
    start();
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
