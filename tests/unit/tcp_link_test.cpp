// An established connection to a device: sending all, asking whether it still stands.
//
// The test's thread calls the library and plays the device in turn; only a peer that reads while
// the library sends has a thread of its own.
#include <cerrno>
#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "live_login.h"
#include "log_story.h"
#include "log_tap.h"
#include "scripted_device.h"
#include "seam.h"
#include "sockets.h"
#include "tcp_link.h"

using namespace support;
using std::chrono::steady_clock;

// ---- sending all -------------------------------------------------------------------------------

namespace
{

class TcpSend : public testing::Test, protected connection
{
    const library inited{0};
};

class TcpSendLines : public TcpSend, public with_level
{
};

} // namespace

TEST_F(TcpSend, SendsAFewBytes)
{
    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), 0);
    EXPECT_EQ(end.read_bytes(6), text("abcdef"));
}

TEST_F(TcpSend, SendsMoreThanTheSocketTakesAtOnce)
{
    const timeval limit = {60, 0}; // not the link's own, which a busy machine could exceed
    setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    const bytes whole = pattern(16 << 20);
    auto reader = std::async(std::launch::async, [&] { return end.read_bytes(whole.size()); });

    EXPECT_EQ(sdk_send_to_tcp(sock, whole.data(), static_cast<int>(whole.size())), 0);

    EXPECT_TRUE(reader.get() == whole);
}

TEST_F(TcpSend, GoesOnWhereAShortSendStopped)
{
    fault short_send("send", 0, 1, 1); // says it took two, and took none
    short_send.returning(2);

    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), 0);

    EXPECT_EQ(end.read_bytes(4), text("cdef"));
}

TEST_F(TcpSend, DoesNotRepeatASendThatWasInterrupted)
{
    for (const int reason : {EINTR, EAGAIN}) {
        const fault once("send", reason, 1, 1);
        const before_call sends("send");
        EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), -1);
        EXPECT_EQ(sends.count(), 1);
    }
}

TEST_F(TcpSend, GivesUpAPeerThatStopsReadingAfterThreeSeconds)
{
    const bytes whole = pattern(64 << 20);
    const log_tap log(1);
    const auto start = steady_clock::now();

    EXPECT_EQ(sdk_send_to_tcp(sock, whole.data(), static_cast<int>(whole.size())), -1);

    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(2900)); // ticks are coarse
    EXPECT_TRUE(all_told(log, "sdk_send_to_tcp", 1, {error("send fail ret != EINTR, ret: -1\n")}));
}

TEST_F(TcpSend, FailsOnAConnectionThatHasGone)
{
    end.reset();
    eventually([&] { return tcp_state(sock) != TCP_ESTABLISHED; });
    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), -1);
    EXPECT_EQ(sdk_send_to_tcp(-1, "abcdef", 6), -1);
}

TEST_P(TcpSendLines, OfNothingToSend)
{
    const log_tap log(level);
    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 0), -1);
    EXPECT_TRUE(
        all_told(log, "sdk_send_to_tcp", level, {error("send fail ret != EINTR, ret: 0\n")}));
}

TEST_P(TcpSendLines, OfAFailure)
{
    const fault broken("send", EPIPE);
    const log_tap log(level);
    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), -1);
    EXPECT_TRUE(
        all_told(log, "sdk_send_to_tcp", level, {error("send fail ret != EINTR, ret: -1\n")}));
}

TEST_P(TcpSendLines, OfSuccess)
{
    const log_tap log(level);
    EXPECT_EQ(sdk_send_to_tcp(sock, "abcdef", 6), 0);
    EXPECT_TRUE(all_told(log, "", level, {}));
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, TcpSendLines, all_levels(), level_name);

// ---- does it stand ------------------------------------------------------------------------------

namespace
{

constexpr char disconnected[] = "client is disconnected !\n";

class TcpStatus : public at_level, protected connection
{
protected:
    // Asks, and expects the answer and the line of a link that has gone.
    void expect_gone(int fd)
    {
        const log_tap log(level);
        EXPECT_EQ(check_tcp_socket_status(fd), -1);
        EXPECT_TRUE(all_told(log, "check_tcp_socket_status", level,
                             {{log_at_every_level, 7, disconnected}}));
    }
};

} // namespace

TEST_P(TcpStatus, IsGoodAndSilentWhileTheConnectionStands)
{
    const log_tap log(level);
    EXPECT_EQ(check_tcp_socket_status(sock), 0);
    end.send(text("data"));
    EXPECT_EQ(check_tcp_socket_status(sock), 0);
    EXPECT_TRUE(all_told(log, "", level, {}));
}

TEST_P(TcpStatus, IsBadAndSaysSoAtEveryLevelOnceThePeerHasClosed)
{
    end.close();
    ASSERT_TRUE(eventually([&] { return tcp_state(sock) == TCP_CLOSE_WAIT; }));
    expect_gone(sock);
}

TEST_P(TcpStatus, IsBadOnceThePeerHasReset)
{
    end.reset();
    ASSERT_TRUE(eventually([&] { return tcp_state(sock) == TCP_CLOSE; }));
    expect_gone(sock);
}

TEST_P(TcpStatus, IsBadOnceItIsShutDownHere)
{
    shutdown(sock, SHUT_RDWR);
    expect_gone(sock);
}

TEST_P(TcpStatus, IsBadWhenTheSystemCanNotTell)
{
    const fault mute("getsockopt", ENOBUFS);
    expect_gone(sock);
}

TEST_P(TcpStatus, IsBadForADescriptorThatIsNone)
{
    expect_gone(-1);
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, TcpStatus, all_levels(), level_name);

TEST(TcpStatusOutput, GoesToStandardOutputWithLoggingSwitchedOff)
{
    ASSERT_EQ(info_callback, nullptr);
    for (const int level : {-1, 0}) {
        set_log_level(level);
        testing::internal::CaptureStdout();
        EXPECT_EQ(check_tcp_socket_status(-1), -1);
        EXPECT_THAT(testing::internal::GetCapturedStdout(),
                    testing::EndsWith(" check_tcp_socket_status] client is disconnected !\n"));
    }
}

// ---- the small helpers -------------------------------------------------------------------------

TEST(SocketError, IsThePendingOneAndIsTakenByReading)
{
    const owned_socket sock(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const refusing_port port;
    sockaddr_in address = loopback_address(port);
    ASSERT_EQ(connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)), -1);
    ASSERT_EQ(errno, EINPROGRESS);

    int error = 0;
    EXPECT_TRUE(eventually([&] { return read_socket_error(sock, &error) && error != 0; }));
    EXPECT_EQ(error, ECONNREFUSED);
    EXPECT_TRUE(read_socket_error(sock, &error));
    EXPECT_EQ(error, 0);
}

TEST(SocketError, CanNotBeReadFromADescriptorThatIsNone)
{
    int error = 0;
    EXPECT_FALSE(read_socket_error(-1, &error));
}
