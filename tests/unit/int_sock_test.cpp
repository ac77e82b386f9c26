// Making the loopback socket of a connection, and the lines about it.
//
// One thread; the levels -1 to 2 are the parameter where lines are looked at.
#include <atomic>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "link.h"
#include "log_story.h"
#include "log_tap.h"
#include "process_probe.h"
#include "seam.h"
#include "sockets.h"
#include "worker_stand.h"

using namespace support;

namespace
{

constexpr char who[] = "build_int_sock";

class IntSock : public at_level
{
protected:
    ~IntSock() override
    {
        EXPECT_EQ(before.left_over(), "");
    }

    int build()
    {
        return build_int_sock(&sock, &port);
    }

    const inventory before;
    std::atomic<int> sock{-7};
    std::atomic<int> port{-7};
};

} // namespace

TEST(IntSockItself, IsAUdpSocketOfThisMachineOnAPortOfTheSystemsChoice)
{
    std::atomic<int> sock{-1};
    std::atomic<int> port{0};
    ASSERT_EQ(build_int_sock(&sock, &port), 0);
    const owned_socket owned(sock);

    sockaddr_in bound = {};
    socklen_t length = sizeof(bound);
    getsockname(owned, reinterpret_cast<sockaddr*>(&bound), &length);
    EXPECT_EQ(bound.sin_family, AF_INET);
    EXPECT_EQ(bound.sin_addr.s_addr, htonl(0x7f000001));
    EXPECT_EQ(ntohs(bound.sin_port), port);
    EXPECT_GT(port, 0);
    int type = 0;
    length = sizeof(type);
    getsockopt(owned, SOL_SOCKET, SO_TYPE, &type, &length);
    EXPECT_EQ(type, SOCK_DGRAM);
}

TEST(IntSockItself, TakesDatagramsAndIsNotInherited)
{
    std::atomic<int> sock{-1};
    std::atomic<int> port{0};
    ASSERT_EQ(build_int_sock(&sock, &port), 0);
    const owned_socket owned(sock);
    loopback_socket requester;

    requester.send_to(static_cast<unsigned short>(port), text("hi"));

    char received[4] = {};
    EXPECT_EQ(recv(owned, received, sizeof(received), 0), 2);
    EXPECT_STREQ(received, "hi");
    EXPECT_TRUE(is_blocking(owned));
    EXPECT_TRUE(closes_on_exec(owned));
}

TEST_P(IntSock, SaysWhatItHasMade)
{
    const log_tap log(level);

    EXPECT_EQ(build(), 0);

    const std::string numbers =
        "int_sock:" + std::to_string(sock) + " int_port:" + std::to_string(port) + "\n";
    EXPECT_TRUE(all_told(
        log, who, level,
        {trace("enter build_int_sock\n"), trace("leave build_int_sock\n"), trace(numbers)}));
    close(sock);
}

TEST_P(IntSock, FailsWithoutASocketAndTouchesNothing)
{
    const fault none("socket", EMFILE);
    const log_tap log(level);

    EXPECT_EQ(build(), -1);

    EXPECT_TRUE(
        all_told(log, who, level, {trace("enter build_int_sock\n"), error("socket fail!\n")}));
    EXPECT_EQ(sock, -7);
    EXPECT_EQ(port, -7);
}

TEST_P(IntSock, FailsWhenItCanNotBeBoundAndClosesIt)
{
    const fault unbound("bind", EADDRINUSE);
    const log_tap log(level);

    EXPECT_EQ(build(), -1);

    EXPECT_TRUE(all_told(log, who, level,
                         {trace("enter build_int_sock\n"), error("bind fail!\n"),
                          trace("leave build_int_sock -1\n")}));
    EXPECT_EQ(sock, -7);
    EXPECT_EQ(port, -7);
}

TEST_P(IntSock, FailsWhenItsPortCanNotBeReadAndKeepsTheClosedNumber)
{
    const fault nameless("getsockname", ENOBUFS);
    const log_tap log(level);

    EXPECT_EQ(build(), -1);

    EXPECT_TRUE(all_told(log, who, level,
                         {trace("enter build_int_sock\n"), error("getsockname fail!\n"),
                          trace("leave build_int_sock -1\n")}));
    EXPECT_GE(sock, 0);
    EXPECT_FALSE(is_open(sock));
    EXPECT_EQ(port, -7);
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, IntSock, all_levels(), level_name);
