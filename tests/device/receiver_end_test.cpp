// How a receiver's life begins and the quick ways in which it ends: told to, or the link breaks.
//
// The test thread plays the device and the device manager. What a silent link leads to takes
// seconds and has tests of its own.
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "receiver_kit.h"

using namespace support;

namespace
{

told header_error_line(int error_number)
{
    return error("recv error: " + std::string(strerror(error_number)) +
                 " (errno=" + std::to_string(error_number) + ")\n");
}

void wake_by_pipe(const zu_sdk_user* user)
{
    ASSERT_EQ(write(user->shutdown_pipe_recver[1], "x", 1), 1);
}

int bytes_in(int fd)
{
    int count = -1;
    ioctl(fd, FIONREAD, &count);
    return count;
}

// Puts a datagram that nobody wants on the loopback socket's error queue; the socket shows it as
// `event`.
bool put_on_error_queue(int int_sock, short event)
{
    const int on = 1;
    setsockopt(int_sock, SOL_IP, IP_RECVERR, &on, sizeof(on));
    sockaddr_in nobody = {};
    nobody.sin_family = AF_INET;
    nobody.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    {
        const loopback_socket gone;
        nobody.sin_port = htons(gone.port());
    }
    sendto(int_sock, "x", 1, 0, reinterpret_cast<sockaddr*>(&nobody), sizeof(nobody));
    pollfd watched = {int_sock, POLLPRI, 0};
    return poll(&watched, 1, 5000) == 1 && (watched.revents & event) != 0;
}

void make_queue_exceptional(int int_sock)
{
    const int on = 1;
    setsockopt(int_sock, SOL_SOCKET, SO_SELECT_ERR_QUEUE, &on, sizeof(on));
}

// The only exceptional condition that a datagram socket can have.
bool make_exceptional(int int_sock)
{
    make_queue_exceptional(int_sock);
    return put_on_error_queue(int_sock, POLLPRI);
}

// A stream callback that leaves an error number behind on the receiver thread.
ZU_S32 leave_eperm(ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID* calls)
{
    ++*static_cast<std::atomic<int>*>(calls);
    errno = EPERM;
    return 0;
}

} // namespace

TEST(ReceiverEnd, SaysWhenItRunsAndWhenItHasEnded)
{
    receiver_stand stand;
    EXPECT_EQ(stand.user->msgrecver_started, 1);
    EXPECT_EQ(threads_named(receiver_name), 1);
    wake_by_pipe(stand.user);
    EXPECT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.user->msgrecver_started, 0);
}

TEST(ReceiverEnd, AByteOnTheShutdownPipeEndsItAndStaysThere)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        EXPECT_TRUE(takes_a_frame(stand));
        wake_by_pipe(stand.user);
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(bytes_in(stand.user->shutdown_pipe_recver[0]), 1);
        expect_log(stand, {shutdown_line, exit_line("*")});
    }
}

TEST(ReceiverEnd, AByteOnTheShutdownPipeEndsItWithinABodyToo)
{
    receiver_stand stand;
    stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
    ASSERT_TRUE(all_read(stand));
    wake_by_pipe(stand.user);
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {shutdown_line});
    EXPECT_EQ(stand.seen.block_count(), 0U);
}

TEST(ReceiverEnd, TheShutdownPipeGoesBeforeAWaitingMessage)
{
    held_watcher held;
    receiver_stand stand;
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    stand.link.send(stream_data("KTVF", {}));
    wake_by_pipe(stand.user);
    held.gate.let_go();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(held.seen.block_count(), 1U);
    expect_log(stand, {shutdown_line});
}

TEST(ReceiverEnd, TheShutdownPipeGoesBeforeAnExceptionOnTheLoopbackSocket)
{
    held_watcher held;
    receiver_stand stand(1);
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    ASSERT_TRUE(make_exceptional(stand.user->int_sock));
    wake_by_pipe(stand.user);
    held.gate.let_go();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {shutdown_line});
}

TEST(ReceiverEnd, AClearedRunWordEndsItAtTheNextPass)
{
    for (const int level : log_levels) {
        const before_call waits("ppoll");
        receiver_stand stand(level);
        ASSERT_TRUE(eventually([&] { return waits.count() >= 1; })); // a pass is under way
        stand.user->msgrecver_run = 0;
        stand.link.send(stream_data("KTVF", {})); // it is finished first
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(stand.seen.block_count(), 1U);
        expect_log(stand, {exit_line("*")});
    }
}

TEST(ReceiverEnd, AnExceptionOnTheLoopbackSocketEndsIt)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        ASSERT_TRUE(make_exceptional(stand.user->int_sock));
        // Such an error queue does not wake a wait under way; a message does.
        stand.link.send(stream_data("KTVF", {}));
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(stand.seen.block_count(), 0U);
        expect_log(stand, {error("int_sock exception happened!\n"), exit_line("*")});
    }
}

TEST(ReceiverEnd, AnExceptionOnTheLoopbackSocketGoesBeforeAWaitingMessage)
{
    held_watcher held;
    receiver_stand stand(1);
    held.attach(stand.user);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(held.gate.reached());
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(make_exceptional(stand.user->int_sock));
    held.gate.let_go();
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(held.seen.block_count(), 1U);
    expect_log(stand, {error("int_sock exception happened!\n")});
}

TEST(ReceiverEnd, AnExceptionOnTheLoopbackSocketEndsAWaitThatIsUnderWay)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    ASSERT_TRUE(make_exceptional(stand.user->int_sock));
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("int_sock exception happened!\n")});
}

// The error is the sender's, who reads the socket.
TEST(ReceiverEnd, AnErrorOnTheLoopbackSocketThatIsNoExceptionIsPassedOver)
{
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    const before_call waits("ppoll");
    ASSERT_TRUE(put_on_error_queue(stand.user->int_sock, POLLERR));
    ASSERT_TRUE(eventually([&] { return waits.count() >= 1; }));
    // It wakes the receiver no more.
    EXPECT_TRUE(all_along([&] { return waits.count() <= 2; }, std::chrono::milliseconds(300)));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_TRUE(stand.log.lines().empty());

    make_queue_exceptional(stand.user->int_sock);
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("int_sock exception happened!\n")});
}

TEST(ReceiverEnd, AFailedWaitEndsIt)
{
    for (const int level : log_levels) {
        fault failing("ppoll", ENOMEM, 2); // the second wait
        failing.on_thread(receiver_name);
        receiver_stand stand(level);
        EXPECT_TRUE(takes_a_frame(stand));
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(failing.hits(), 1);
        expect_log(stand, {error("msgrecver select faill!\n"), exit_line("-1")});
    }
}

TEST(ReceiverEnd, AnInterruptedWaitIsAFailedWait)
{
    fault interrupted("ppoll", EINTR, 2, 1);
    interrupted.on_thread(receiver_name);
    receiver_stand stand(1);
    EXPECT_TRUE(takes_a_frame(stand));
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("msgrecver select faill!\n")});
}

// ---- the link breaks between two messages ----

TEST(ReceiverEnd, AnOrderlyCloseReadsAsTheErrorLeftOverWhichIsNoneAtFirst)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.close();
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand,
                   {error("recv error: Success (errno=0)\n"), header_break_line, exit_line("-1")});
    }
}

TEST(ReceiverEnd, AnOrderlyCloseAfterWholeMessagesFindsNoErrorLeftOver)
{
    loopback_socket caller;
    receiver_stand stand(1);
    stand.link.send(make_message(0x1002, caller.wait_port(), le32(0)) + heartbeat_answer());
    ASSERT_TRUE(caller.receive());
    ASSERT_TRUE(stand.seen.wait_for_event(4));
    EXPECT_TRUE(takes_a_frame(stand));
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {error("recv error: Success (errno=0)\n"), header_break_line});
}

TEST(ReceiverEnd, AnOrderlyCloseReadsAsTheErrorThatACallbackLeftBehind)
{
    std::atomic<int> calls{0};
    receiver_stand stand(1);
    stand.user->stream_userdata = &calls;
    stand.user->stream_callback = leave_eperm;
    stand.link.send(stream_data("KTVF", {}));
    ASSERT_TRUE(eventually([&] { return calls == 1; }));
    stand.link.close();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {header_error_line(EPERM), header_break_line});
}

TEST(ReceiverEnd, AResetBetweenMessagesEndsIt)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        EXPECT_TRUE(takes_a_frame(stand));
        stand.link.reset();
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {error("recv error: Connection reset by peer (errno=104)\n"),
                           header_break_line, exit_line("-1")});
    }
}

TEST(ReceiverEnd, AnyOtherErrorOfAHeaderReadEndsIt)
{
    for (const int error_number : {ENOTCONN, ETIMEDOUT, ENOMEM, EBADF}) {
        fault failing("recv", error_number, 1, 1);
        failing.on_thread(receiver_name);
        receiver_stand stand(2);
        stand.link.send(heartbeat_answer());
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {header_error_line(error_number), header_break_line, exit_line("-1")});
    }
}

TEST(ReceiverEnd, AResetInsideAHeaderEndsIt)
{
    receiver_stand stand(2);
    stand.link.send(hex("22 10 00 00 00"));
    ASSERT_TRUE(all_read(stand));
    stand.link.reset();
    ASSERT_TRUE(stand.receiver_ended());
    expect_log(stand, {header_error_line(ECONNRESET), header_break_line, exit_line("-1")});
}

// ---- the link breaks inside a body ----

TEST(ReceiverEnd, ACloseInsideABodyEndsIt)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
        ASSERT_TRUE(all_read(stand));
        stand.link.close();
        ASSERT_TRUE(stand.receiver_ended());
        EXPECT_EQ(stand.seen.block_count(), 0U);
        expect_log(stand, {error("Disconnected (body recv)! Peer closed connection. ret: 0\n"),
                           exit_line("0")});
    }
}

TEST(ReceiverEnd, AResetInsideABodyEndsIt)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
        ASSERT_TRUE(all_read(stand));
        stand.link.reset();
        ASSERT_TRUE(stand.receiver_ended());
        expect_log(stand, {error("Disconnected (body recv)! recv error: Connection reset by peer "
                                 "(errno=104)\n"),
                           exit_line("-1")});
    }
}

TEST(ReceiverEnd, AnyOtherErrorOfABodyReadEndsIt)
{
    fault failing("recv", ENOMEM, 2, 1);
    failing.on_thread(receiver_name);
    receiver_stand stand(2);
    stand.link.send(make_message(0x1100, 1000, 0, pattern(10)));
    ASSERT_TRUE(all_read(stand));
    stand.link.send(pattern(10));
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_EQ(stand.seen.block_count(), 0U);
    expect_log(stand, {error("Disconnected (body recv)! recv error: Cannot allocate memory "
                             "(errno=12)\n"),
                       exit_line("-1")});
}

// ---- what it leaves to others ----

TEST(ReceiverEnd, ClosesNothingAndLeavesTheSenderAlone)
{
    receiver_stand stand;
    stand.user->msgsender_run = 1;
    wake_by_pipe(stand.user);
    ASSERT_TRUE(stand.receiver_ended());
    EXPECT_NE(fcntl(stand.user->ext_sock, F_GETFD), -1);
    EXPECT_NE(fcntl(stand.user->int_sock, F_GETFD), -1);
    pollfd device_end = {stand.link.socket(), POLLIN, 0};
    EXPECT_EQ(poll(&device_end, 1, 0), 0); // neither data nor an end
    EXPECT_EQ(stand.user->msgsender_run, 1);
    EXPECT_EQ(stand.user->used, ZU_SDK_USER_USED);
    EXPECT_EQ(stand.user->msgrecver_run, 1);
}
