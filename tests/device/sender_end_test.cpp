// The ends of the sender thread: what ends it, in which order it looks, what it says, and that it
// closes nothing. (Its heartbeat's ways to end it are in sender_heartbeat_test.cpp.)
//
// Where several things are to be there at once, the sender is held just before a wait until all of
// them are.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "msg_sender.h"
#include "requester.h"
#include "seam.h"
#include "worker_stand.h"

using namespace support;
using testing::ElementsAre;

namespace
{

struct sender_end : testing::Test {
    still_stand stand{1};
    loopback_socket requester;
    std::atomic<bool> arranged{false};

    void request(const bytes& datagram)
    {
        ASSERT_TRUE(requester.send_to(stand.int_port(), datagram));
    }
    void tell_by_pipe()
    {
        ASSERT_EQ(write(stand.user->shutdown_pipe_sender[1], "x", 1), 1);
    }
    // Starts the sender, holds it before its first wait, and lets it go when all is arranged.
    template <class Arrange>
    void hold_sender_while(Arrange arrange)
    {
        const before_call held("ppoll", [this] { eventually([this] { return arranged.load(); }); });
        stand.start_sender();
        ASSERT_TRUE(eventually([&] { return held.count() == 1; }));
        arrange();
        arranged = true;
        ASSERT_TRUE(stand.sender_ended());
    }
    void expect_nothing_was_sent()
    {
        EXPECT_EQ(stand.link.read_bytes(1, std::chrono::milliseconds(100)), bytes());
    }
    std::vector<std::string> said()
    {
        return stand.log.messages_of(sender_thread);
    }
};

bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

// Waits until what a test has sent can be seen on a descriptor of the library.
bool shows(int fd, short what)
{
    return eventually([&] {
        pollfd waiting = {fd, what, 0};
        return poll(&waiting, 1, 0) == 1 && (waiting.revents & what) != 0;
    });
}

} // namespace

TEST_F(sender_end, AnEmptyDatagramEndsIt)
{
    stand.start_sender();
    request({});
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("recvfrom ret: 0, break\n"));
}

TEST_F(sender_end, AByteOnTheShutdownPipeEndsItAndStaysThere)
{
    stand.start_sender();
    tell_by_pipe();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("Sender thread received shutdown signal. Exiting.\n"));
    EXPECT_TRUE(shows(stand.user->shutdown_pipe_sender[0], POLLIN));
}

TEST_F(sender_end, UrgentDataThatTheReceiverHasNotedEndsIt)
{
    stand.start_sender();
    stand.user->link->urgent_data = true; // as the receiver notes it
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("ext_sock exception happened!\n"));
}

TEST_F(sender_end, ItsClearedRunWordEndsItWithoutALine)
{
    stand.start_sender();
    stand.user->msgsender_run = 0;
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_TRUE(said().empty());
}

TEST_F(sender_end, TheRunWordIsTestedBeforeTheFirstPass)
{
    const before_call waits("ppoll");
    stand.user->msgsender_run = 0;
    sdk_user_hold(stand.user);
    link_hold(stand.user->worker_link);
    ASSERT_EQ(pthread_create(&stand.user->msgsender, nullptr, sdk_msgsender_main, stand.user), 0);
    stand.user->msgsender_unjoined = true;
    stand.end_workers();
    EXPECT_EQ(waits.count(), 0);
    EXPECT_TRUE(said().empty());
}

TEST_F(sender_end, AnInterruptedWaitEndsItLikeAnyFailedOne)
{
    stand.start_sender();
    fault interrupted("ppoll", EINTR, 1, 1);
    interrupted.on_thread(sender_thread);
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("msgsender select faill!\n"));
}

TEST_F(sender_end, AFailedForwardEndsIt)
{
    fault failing("send", EPIPE);
    failing.on_thread(sender_thread);
    stand.start_sender();
    request(start_datagram());
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("send faill!\n"));
    EXPECT_EQ(failing.hits(), 1);
}

TEST_F(sender_end, AForwardThatSendsNothingEndsIt)
{
    fault nothing("send", 0);
    nothing.on_thread(sender_thread).returning(0);
    stand.start_sender();
    request(start_datagram());
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("send faill!\n"));
    EXPECT_EQ(nothing.hits(), 1);
}

TEST_F(sender_end, AResetConnectionEndsItAtTheNextQuietWait)
{
    stand.start_sender();
    stand.link.reset();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("Socket error detected during timeout: "
                                    "Connection reset by peer\n"));
}

TEST_F(sender_end, ASocketWhoseErrorCannotBeReadEndsItAtTheNextQuietWait)
{
    fault unreadable("getsockopt", EBADF);
    unreadable.on_thread(sender_thread);
    stand.start_sender();
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("Socket error detected during timeout: Success\n"));
}

TEST_F(sender_end, ALinkWhoseTcpSocketWasShutEndsItAsAFailedWait)
{
    stand.start_sender();
    link_shut_ext(stand.user->worker_link);
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("msgsender select faill!\n"));
}

TEST_F(sender_end, ALinkWhoseLoopbackSocketWasShutEndsItAsAFailedWait)
{
    stand.start_sender();
    link_shut_int(stand.user->worker_link);
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("msgsender select faill!\n"));
}

// Shut between the wait and the read: an empty read is then no empty datagram.
TEST_F(sender_end, ALinkShutBeforeAnEmptyReadCountsAsAFailedRead)
{
    const before_call reads("recvfrom", [this] { link_shut_int(stand.user->worker_link); });
    fault empty("recvfrom", 0);
    empty.returning(0);
    stand.start_sender();
    request(start_datagram());
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_THAT(said(), ElementsAre("recv data msg fail!\n", "msgsender select faill!\n"));
}

TEST_F(sender_end, ClosesNothing)
{
    stand.start_sender();
    request({});
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_TRUE(is_open(stand.user->ext_sock));
    EXPECT_TRUE(is_open(stand.user->int_sock));
    EXPECT_TRUE(is_open(stand.user->shutdown_pipe_sender[0]));
    pollfd of_device = {stand.link.socket(), POLLIN, 0};
    EXPECT_EQ(poll(&of_device, 1, 100), 0) << "the device sees the connection end";
}

TEST_F(sender_end, PausesForTenMillisecondsBeforeItSaysItHasEnded)
{
    std::atomic<int> started_during_pause{-1};
    const before_call pauses("usleep",
                             [&] { started_during_pause = stand.user->msgsender_started.load(); });
    fault the_pause("usleep", 0);
    the_pause.on_thread(sender_thread).on_descriptor(10000).returning(0);
    stand.start_sender();
    request({});
    ASSERT_TRUE(stand.sender_ended());
    EXPECT_EQ(the_pause.hits(), 1);
    EXPECT_EQ(pauses.count(), 1);
    EXPECT_EQ(started_during_pause, 1);
}

// ---- the order in which it looks ---------------------------------------------------------------

TEST_F(sender_end, AFailedWaitComesBeforeThePipe)
{
    fault failing("ppoll", EBADF, 1, 1);
    failing.on_thread(sender_thread);
    hold_sender_while([&] { tell_by_pipe(); });
    EXPECT_THAT(said(), ElementsAre("msgsender select faill!\n"));
}

TEST_F(sender_end, AShutLinkComesBeforeThePipe)
{
    hold_sender_while([&] {
        tell_by_pipe();
        link_shut_int(stand.user->worker_link);
    });
    EXPECT_THAT(said(), ElementsAre("msgsender select faill!\n"));
}

TEST_F(sender_end, ThePipeComesBeforeTheExceptionAndTheDatagram)
{
    hold_sender_while([&] {
        request(start_datagram());
        ASSERT_TRUE(shows(stand.user->int_sock, POLLIN));
        stand.user->link->urgent_data = true;
        tell_by_pipe();
    });
    EXPECT_THAT(said(), ElementsAre("Sender thread received shutdown signal. Exiting.\n"));
    expect_nothing_was_sent();
}

TEST_F(sender_end, TheExceptionComesBeforeThePipeWhenItWasThereFirst)
{
    hold_sender_while([&] {
        stand.user->link->urgent_first = true; // as the device manager notes it
        tell_by_pipe();
    });
    EXPECT_THAT(said(), ElementsAre("ext_sock exception happened!\n"));
}

TEST_F(sender_end, TheExceptionComesBeforeAShutLinkWhenItWasThereFirst)
{
    hold_sender_while([&] {
        ASSERT_TRUE(stand.link.send_urgent('!'));
        ASSERT_TRUE(eventually([&] { return link_has_urgent_data(stand.user->link); }));
        link_shut_int(stand.user->worker_link);
    });
    EXPECT_THAT(said(), ElementsAre("ext_sock exception happened!\n"));
}

TEST_F(sender_end, TheExceptionComesBeforeTheDatagram)
{
    hold_sender_while([&] {
        request(start_datagram());
        ASSERT_TRUE(shows(stand.user->int_sock, POLLIN));
        stand.user->link->urgent_data = true;
    });
    EXPECT_THAT(said(), ElementsAre("ext_sock exception happened!\n"));
    expect_nothing_was_sent();
}

TEST_F(sender_end, AQuietWaitLooksAtTheSocketErrorAndNotForADatagram)
{
    fault quiet("ppoll", 0, 1, 1);
    quiet.on_thread(sender_thread).returning(0);
    fault pending("getsockopt", ETIMEDOUT);
    pending.on_thread(sender_thread).returning(0);
    hold_sender_while([&] {
        request(start_datagram());
        ASSERT_TRUE(shows(stand.user->int_sock, POLLIN));
    });
    EXPECT_THAT(said(), ElementsAre("Socket error detected during timeout: "
                                    "Connection timed out\n"));
    expect_nothing_was_sent();
}

TEST_F(sender_end, ADatagramIsForwardedWithoutALookAtTheSocketError)
{
    fault unreadable("getsockopt", EBADF);
    unreadable.on_thread(sender_thread);
    const before_call waits("ppoll", [this] { eventually([this] { return arranged.load(); }); });
    stand.start_sender();
    request(start_datagram());
    ASSERT_TRUE(shows(stand.user->int_sock, POLLIN));
    arranged = true;
    EXPECT_EQ(stand.link.read_bytes(20), stamped(start_datagram(), requester.port()));
    ASSERT_TRUE(stand.sender_ended()); // at the quiet wait that follows
}
