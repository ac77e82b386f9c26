// How the device manager connects: what it does and says when that fails, first and later, and when
// the loopback socket cannot be built. Failing calls are the seam's, on the device manager's
// thread.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link.h"
#include "login_kit.h"

using namespace support;

namespace
{

constexpr char build_failed[] = "build_int_sock fail!\n";

std::string connect_failure(const serving_device& device)
{
    return "tcp_connect to 127.0.0.1:" + std::to_string(device.port()) + " fail!\n";
}

// A login before its reconnection, so that faults can be laid out for it.
class Reconnecting : public watched_login
{
protected:
    bool comes_up()
    {
        lost.go_on();
        return login->seen.wait_for_event(ZU_NET_DEV_CONNECTED) && login->wait_until_up();
    }

    lost_link lost{*device};
};

// A fault for the device manager's thread.
struct manager_fault : fault {
    manager_fault(const char* call, int with, int from, int how_often)
        : fault(call, with, from, how_often)
    {
        on_thread(manager_name);
    }
};

struct build_failure {
    const char* name;
    const char* call;
    int nth; // the device manager makes a socket for the device first
    story lines;
};

const build_failure build_failures[] = {
    {"WithoutASocket", "socket", 1, {trace("enter build_int_sock\n"), error("socket fail!\n")}},
    {"WithoutAPort",
     "bind",
     1,
     {trace("enter build_int_sock\n"), error("bind fail!\n"), trace("leave build_int_sock -1\n")}},
    {"WithoutItsName",
     "getsockname",
     1,
     {trace("enter build_int_sock\n"), error("getsockname fail!\n"),
      trace("leave build_int_sock -1\n")}},
};

class LoopbackSocket : public testing::TestWithParam<build_failure>
{
};

std::string name_of_case(const testing::TestParamInfo<build_failure>& info)
{
    return info.param.name;
}

} // namespace

TEST_F(Reconnecting, RefusedAttemptsAreRepeatedWithoutAPauseAndEverySixthIsTold)
{
    manager_fault refusals("connect", ECONNREFUSED, 1, 13);
    EXPECT_TRUE(comes_up());
    EXPECT_EQ(refusals.hits(), 13);
    EXPECT_EQ(log->count(connect_failure(*device)), 2);
    EXPECT_TRUE(log->has(0, manager_name, connect_failure(*device)));
    EXPECT_EQ(log->count(pause_line), 1);
    EXPECT_TRUE(eventually([&] { return device->connections_made() == 2; }));
}

TEST_F(Reconnecting, FiveRefusedAttemptsAreNotTold)
{
    const manager_fault refusals("connect", ECONNREFUSED, 1, 5);
    EXPECT_TRUE(comes_up());
    EXPECT_EQ(log->count(connect_failure(*device)), 0);
}

TEST_F(Reconnecting, AConnectionInBetweenStartsTheCountOfRefusalsAfresh)
{
    // Five are refused, one connects but gets no loopback socket, four more are refused.
    const manager_fault first("connect", ECONNREFUSED, 1, 5);
    const manager_fault then("connect", ECONNREFUSED, 2, 4); // sees what the first lets through
    const manager_fault unbound("bind", EADDRINUSE, 1, 1);
    EXPECT_TRUE(comes_up());
    EXPECT_EQ(first.hits(), 5);
    EXPECT_EQ(then.hits(), 4);
    EXPECT_EQ(log->count(connect_failure(*device)), 0);
    EXPECT_EQ(log->count(build_failed), 1);
}

TEST_F(Reconnecting, ARealDeviceThatRefusesIsTriedAgainUntilItServes)
{
    device->refuse();
    lost.go_on();
    // Two lines: twelve refusals at least.
    EXPECT_TRUE(eventually([&] { return log->count(connect_failure(*device)) >= 2; }));
    device->serve_again();
    EXPECT_TRUE(comes_up());
    EXPECT_EQ(login->start_stream(), 0);
    EXPECT_EQ(login->seen.count(ZU_NET_DEV_DISCONNECTED), 1);
}

TEST_F(Reconnecting, TheSocketFieldIsMinusOneAfterARefusal)
{
    const manager_fault refusals("connect", ECONNREFUSED, 1, for_ever);
    lost.go_on();
    EXPECT_TRUE(log->wait_for(connect_failure(*device)));
    const held_user user(login->handle());
    EXPECT_EQ(user->ext_sock, -1);
    EXPECT_EQ(user->int_sock, -1);
    EXPECT_EQ(user->used, -1);
}

TEST_P(LoopbackSocket, ThatCannotBeBuiltEndsTheConnectionAndTheNextComesAtOnce)
{
    const inventory before;
    {
        const library lib(0);
        serving_device device;
        for (const int level : log_levels) {
            const log_tap log(level);
            const build_failure& failure = GetParam();
            const bool by_socket = std::string(failure.call) == "socket";
            fault f(failure.call, EMFILE, by_socket ? 2 : failure.nth, 1);
            f.on_thread(manager_name);
            const int made = device.connections_made();
            const live_login login(device.port());
            EXPECT_EQ(login.result(), 0); // by the second connection
            EXPECT_EQ(f.hits(), 1);
            EXPECT_TRUE(eventually(
                [&] { return device.connections_made() == made + 2 && device.links_open() == 1; }));
            EXPECT_TRUE(told_by(log, "build_int_sock", level,
                                failure.lines + story{trace("enter build_int_sock\n"),
                                                      trace("leave build_int_sock\n"),
                                                      trace("int_sock:* int_port:*\n")}));
            EXPECT_EQ(log.count(build_failed), level >= 1 ? 1 : 0);
            EXPECT_EQ(log.has(0, manager_name, build_failed), level >= 1);
            EXPECT_FALSE(log.has(pause_line));
        }
    }
    EXPECT_EQ(before.left_over(), "");
}

INSTANTIATE_TEST_SUITE_P(Each, LoopbackSocket, testing::ValuesIn(build_failures), name_of_case);

TEST(BuildIntSock, StoresTheSocketAndItsPortInHostOrder)
{
    std::atomic<int> sock{-1};
    std::atomic<int> port{-1};
    ASSERT_EQ(build_int_sock(&sock, &port), 0);
    const int taken = port;
    std::atomic<int> other_sock{-1};
    std::atomic<int> other_port{-1};
    ASSERT_EQ(build_int_sock(&other_sock, &other_port), 0);
    loopback_socket to;
    EXPECT_TRUE(to.send_to(static_cast<unsigned short>(taken), text("hello")));
    char received[16] = {};
    EXPECT_EQ(recv(sock, received, sizeof(received), 0), 5);
    EXPECT_STREQ(received, "hello");
    EXPECT_NE(port, other_port);
    close(sock);
    close(other_sock);
}

TEST(BuildIntSock, WithoutASocketOrAPortLeavesBothFieldsAlone)
{
    for (const char* call : {"socket", "bind"}) {
        const fault f(call, EMFILE);
        std::atomic<int> sock{-7};
        std::atomic<int> port{-8};
        EXPECT_EQ(build_int_sock(&sock, &port), -1);
        EXPECT_EQ(sock, -7);
        EXPECT_EQ(port, -8);
    }
}

TEST(BuildIntSock, WithoutItsNameLeavesTheNumberOfTheClosedSocketBehind)
{
    const fault f("getsockname", ENOBUFS);
    std::atomic<int> sock{-7};
    std::atomic<int> port{-8};
    EXPECT_EQ(build_int_sock(&sock, &port), -1);
    EXPECT_GT(sock, 2);
    EXPECT_EQ(fcntl(sock, F_GETFD), -1);
    EXPECT_EQ(port, -8);
}

TEST_F(Reconnecting, TheNumberOfAClosedLoopbackSocketIsToldByLogoutButNotClosedOnceMore)
{
    int pipe_ends[2] = {};
    ASSERT_EQ(pipe(pipe_ends), 0);
    const manager_fault nameless("getsockname", ENOBUFS, 1, for_ever);
    lost.go_on();
    ASSERT_TRUE(log->wait_for(build_failed));
    // From now on no connection is made, so that the number stays what it is.
    const manager_fault refusals("connect", ECONNREFUSED, 1, for_ever);
    ASSERT_TRUE(log->wait_for(connect_failure(*device)));
    const held_user user(login->handle());
    const int number = user->int_sock;
    ASSERT_GT(number, 2);
    // The number gets a new owner: this test. The device manager may just have it for an attempt.
    ASSERT_TRUE(eventually([&] {
        const int mine = fcntl(pipe_ends[1], F_DUPFD_CLOEXEC, number);
        if (mine != number) {
            close(mine);
        }
        return mine == number;
    }));
    EXPECT_EQ(login->log_out(), 0);
    EXPECT_TRUE(
        log->has(7, logout_name, "close int_sock, int_sock: " + std::to_string(number) + "\n"));
    EXPECT_EQ(write(number, "x", 1), 1);
    for (const int fd : {pipe_ends[0], pipe_ends[1], number}) {
        EXPECT_EQ(close(fd), 0);
    }
}
