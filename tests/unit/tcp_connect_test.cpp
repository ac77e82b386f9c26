// Connecting to a device: what comes of it, how long it takes, what the socket is like.
//
// The device is the scripted one; the test's thread calls the library and plays the device in turn.
// Where both have to act at once, the device's step runs from the seam, just before the library's
// system call, or on a thread of its own.
#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <vector>

#include <linux/sockios.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_tap.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "seam.h"
#include "sockets.h"
#include "tcp_link.h"

using namespace support;
using std::chrono::steady_clock;

namespace
{

constexpr char host[] = "127.0.0.1";

int option(int fd, int level, int name)
{
    int value = -1;
    socklen_t length = sizeof(value);
    getsockopt(fd, level, name, &value, &length);
    return value;
}

std::pair<long, long> time_option(int fd, int name)
{
    timeval value = {-1, -1};
    socklen_t length = sizeof(value);
    getsockopt(fd, SOL_SOCKET, name, &value, &length);
    return {value.tv_sec, value.tv_usec};
}

// A device that does not answer: its queue of connections is full, so that the system drops what
// else comes.
class silent_device
{
public:
    silent_device()
        : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          first(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = loopback_address(0);
        socklen_t length = sizeof(address);
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(listen(listener, 0), 0);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        EXPECT_EQ(connect(first, reinterpret_cast<sockaddr*>(&address), length), 0);
        pollfd queued = {listener, POLLIN, 0};
        EXPECT_EQ(poll(&queued, 1, static_cast<int>(long_enough.count())), 1);
        port = ntohs(address.sin_port);
    }

    unsigned short port = 0;

private:
    const owned_socket listener;
    const owned_socket first;
};

// A device that accepts and greets as soon as it is asked to, and waits until the system has
// delivered the greeting.
peer greet(scripted_device& device, const bytes& greeting)
{
    peer end = device.accept();
    end.send(greeting);
    eventually([&] {
        int unacknowledged = -1;
        return ioctl(end.socket(), SIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0;
    });
    return end;
}

class TcpConnect : public testing::Test
{
protected:
    ~TcpConnect() override
    {
        device.refuse();
    }

    scripted_device device;
};

// Both ways to connect.
class TcpConnectBothWays : public TcpConnect, public testing::WithParamInterface<int>
{
};

} // namespace

// ---- a connection that comes about -------------------------------------------------------------

TEST_P(TcpConnectBothWays, GivesASocketThatReachesTheDevice)
{
    const owned_socket sock(tcp_ext_connect(host, device.port(), GetParam()));
    ASSERT_GT(sock, 0);
    peer end = device.accept();

    end.send(text("hello"));
    char received[8] = {};
    EXPECT_EQ(recv(sock, received, 5, MSG_WAITALL), 5);
    EXPECT_STREQ(received, "hello");
}

TEST_P(TcpConnectBothWays, GivesASocketWithTheLinksSettings)
{
    const owned_socket sock(tcp_ext_connect(host, device.port(), GetParam()));

    EXPECT_NE(option(sock, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(option(sock, SOL_SOCKET, SO_KEEPALIVE), 0);
    EXPECT_EQ(option(sock, IPPROTO_TCP, TCP_KEEPIDLE), 1);
    EXPECT_EQ(option(sock, IPPROTO_TCP, TCP_KEEPINTVL), 1);
    EXPECT_EQ(option(sock, IPPROTO_TCP, TCP_KEEPCNT), 1);
    EXPECT_EQ(time_option(sock, SO_RCVTIMEO), std::make_pair(3L, 0L));
    EXPECT_EQ(time_option(sock, SO_SNDTIMEO), std::make_pair(3L, 0L));
}

TEST_P(TcpConnectBothWays, GivesABlockingSocketThatOtherProgramsDoNotInherit)
{
    const owned_socket sock(tcp_ext_connect(host, device.port(), GetParam()));

    EXPECT_TRUE(is_blocking(sock));
    EXPECT_TRUE(closes_on_exec(sock));
}

TEST_P(TcpConnectBothWays, TakesAHostThatIsNoAddressForThisMachine)
{
    const owned_socket sock(tcp_ext_connect("no.such.host", device.port(), GetParam()));

    EXPECT_GT(sock, 0);
    EXPECT_TRUE(device.accept().open());
}

TEST_P(TcpConnectBothWays, FailsOnARefusedPortAndClosesTheDescriptor)
{
    const refusing_port port;
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, port, GetParam()), -1);

    EXPECT_EQ(before.left_over(), "");
}

TEST_P(TcpConnectBothWays, FailsWithoutASocket)
{
    const fault none("socket", EMFILE);
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, device.port(), GetParam()), -1);

    EXPECT_EQ(before.left_over(), "");
}

TEST_P(TcpConnectBothWays, ReachesADeviceOverADescriptorAbove1023)
{
    ASSERT_TRUE(allow_descriptors(1300)) << "raise the limit of open files (ulimit -Hn) to 1300";
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < 1100) {
        fillers.push_back(dup(STDIN_FILENO));
        ASSERT_NE(fillers.back(), -1);
    }
    {
        const owned_socket sock(tcp_ext_connect(host, device.port(), GetParam()));
        const peer end = device.accept();
        EXPECT_GT(sock, 1100);
        EXPECT_EQ(check_tcp_socket_status(sock), 0);
    }
    for (const int fd : fillers) {
        close(fd);
    }
}

INSTANTIATE_TEST_SUITE_P(, TcpConnectBothWays, testing::Values(-1, 1000), [](const auto& way) {
    return std::string(way.param == -1 ? "Blocking" : "WithLimit");
});

// ---- within a limit ----------------------------------------------------------------------------

TEST_F(TcpConnect, GivesUpADeviceThatDoesNotAnswerAfterTheLimit)
{
    const silent_device silent;
    const inventory before;
    const auto start = steady_clock::now();

    EXPECT_EQ(tcp_ext_connect(host, silent.port, 1000), -1);

    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_EQ(before.left_over(), "");
}

TEST_F(TcpConnect, WaitsInWholeSecondsAndMicroseconds)
{
    struct {
        int limit_ms;
        long seconds;
        long microseconds;
    } const limits[] = {
        {1500, 1, 500000}, {1000, 1, 0}, {999, 0, 999000}, {0, 0, 0}, {2001, 2, 1000}};
    for (const auto& limit : limits) {
        fault expired("ppoll", 0);
        expired.returning(0);
        EXPECT_EQ(tcp_ext_connect(host, device.port(), limit.limit_ms), -1);
        EXPECT_EQ(last_wait().limit.tv_sec, limit.seconds) << limit.limit_ms;
        EXPECT_EQ(last_wait().limit.tv_usec, limit.microseconds) << limit.limit_ms;
    }
}

TEST_F(TcpConnect, WaitsForItsSocketAlone)
{
    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));
    EXPECT_THAT(last_wait().descriptors, testing::ElementsAre(static_cast<int>(sock)));
}

TEST_F(TcpConnect, ClosesTheDescriptorWhenTheWaitExpires)
{
    fault expired("ppoll", 0);
    expired.returning(0);
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, device.port(), 1000), -1);

    EXPECT_EQ(expired.hits(), 1);
    EXPECT_EQ(before.left_over(), "");
}

TEST_F(TcpConnect, ClosesTheDescriptorWhenTheWaitFails)
{
    const fault failed("ppoll", EINTR);
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, device.port(), 1000), -1);

    EXPECT_EQ(failed.hits(), 1); // no second try
    EXPECT_EQ(before.left_over(), "");
}

TEST_F(TcpConnect, ClosesTheDescriptorWhenConnectFailsAtOnce)
{
    const fault unreachable("connect", ENETUNREACH);
    const before_call waiting("ppoll");
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, device.port(), 1000), -1);

    EXPECT_EQ(waiting.count(), 0);
    EXPECT_EQ(before.left_over(), "");
}

TEST_F(TcpConnect, TakesAConnectThatSucceedsAtOnce)
{
    fault at_once("connect", 0);
    at_once.returning(0);
    const before_call waiting("ppoll");

    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));

    EXPECT_GT(sock, 0);
    EXPECT_TRUE(is_blocking(sock));
    EXPECT_EQ(waiting.count(), 0);
}

TEST_F(TcpConnect, TakesASilentDeviceAtTheFirstConnect)
{
    const before_call connects("connect");

    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));

    EXPECT_GT(sock, 0);
    EXPECT_EQ(connects.count(), 1);
}

// ---- writable and readable at once -------------------------------------------------------------

TEST_F(TcpConnect, TakesADeviceThatGreetsBeforeItIsWaitedFor)
{
    peer end;
    const before_call greeting("ppoll", [&] { end = greet(device, text("welcome")); });
    const before_call connects("connect");

    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));

    ASSERT_GT(sock, 0);
    EXPECT_EQ(connects.count(), 2);
    EXPECT_TRUE(is_blocking(sock));
    char received[8] = {};
    EXPECT_EQ(recv(sock, received, 7, MSG_WAITALL), 7);
    EXPECT_STREQ(received, "welcome");
}

TEST_F(TcpConnect, FailsWhenAGreetingDevicesSecondConnectFailsWithoutAnError)
{
    peer end;
    const before_call greeting("ppoll", [&] { end = greet(device, text("welcome")); });
    const fault second("connect", EALREADY, 2, 1);
    const inventory before;

    EXPECT_EQ(tcp_ext_connect(host, device.port(), 1000), -1);

    EXPECT_EQ(second.hits(), 1);
    end.close();
    EXPECT_EQ(before.left_over(), "");
}

TEST_F(TcpConnect, TakesADeviceWhosePendingErrorSaysItIsConnected)
{
    peer end;
    const before_call greeting("ppoll", [&] { end = greet(device, text("welcome")); });
    const fault second("connect", EALREADY, 2, 1);
    fault pending("getsockopt", EISCONN);
    pending.returning(0);

    const owned_socket sock(tcp_ext_connect(host, device.port(), 1000));

    EXPECT_GT(sock, 0);
    EXPECT_TRUE(is_blocking(sock));
    EXPECT_EQ(pending.hits(), 1);
}

TEST_F(TcpConnect, FailsOnAnyOtherPendingError)
{
    for (const int pending_error : {0, ECONNREFUSED, EALREADY, EINPROGRESS}) {
        fault ready("ppoll", 0);
        ready.returning(1);
        const fault second("connect", EALREADY, 2, 1);
        fault pending("getsockopt", pending_error);
        pending.returning(0);
        const inventory before;

        EXPECT_EQ(tcp_ext_connect(host, device.port(), 1000), -1) << pending_error;

        EXPECT_EQ(pending.hits(), 1) << pending_error;
        EXPECT_EQ(before.left_over(), "");
        device.accept();
    }
}

TEST_F(TcpConnect, ARefusedPortEndsWithItsErrorTakenByTheSecondConnect)
{
    const before_call connects("connect");
    const before_call error_reads("getsockopt");

    EXPECT_EQ(tcp_ext_connect(host, refusing_port(), 1000), -1);

    EXPECT_EQ(connects.count(), 2);
    EXPECT_EQ(error_reads.count(), 1);
}
