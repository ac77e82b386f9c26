// The two sockets of one connection: their marks, their holders and when their numbers are closed.
//
// A pair of connected sockets stands for the TCP connection: what happens at one end shows at the
// other. Tests of a thread that is blocked on a socket start it and then shut the socket down, on
// the test's own thread.
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include <poll.h>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include "link.h"
#include "process_probe.h"
#include "sockets.h"
#include "table_user.h"

using namespace support;

namespace
{

// A link over a fresh socket pair, with a loopback socket where a test builds it.
class Link : public testing::Test
{
protected:
    Link()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        link = link_open(pool, pair[0]);
    }
    ~Link() override
    {
        if (link != nullptr) {
            link_drop(link);
        }
        close(pair[1]);
        EXPECT_EQ(before.left_over(), "");
    }

    void build_int()
    {
        std::atomic<int> sock{-1};
        ASSERT_EQ(build_int_sock(&sock, &int_port), 0);
        link->int_sock = sock.load();
    }
    void drop()
    {
        link_drop(link);
        link = nullptr;
    }
    // The far end has seen the connection end.
    bool ended_at_far_end() const
    {
        char byte;
        return recv(pair[1], &byte, 1, MSG_DONTWAIT) == 0;
    }

    const inventory before;
    link_pool pool = {};
    int pair[2] = {-1, -1};
    device_link* link = nullptr;
    std::atomic<int> int_port{0};
};

} // namespace

// ---- marks -------------------------------------------------------------------------------------

TEST_F(Link, StartsWithItsSocketAndWithoutMarks)
{
    EXPECT_EQ(link->ext_sock, pair[0]);
    EXPECT_EQ(link->int_sock, -1);
    EXPECT_FALSE(link_is_shut(link));
}

TEST_F(Link, EitherMarkEndsIt)
{
    build_int();
    link_shut_int(link);
    EXPECT_TRUE(link_is_shut(link));
    EXPECT_FALSE(ended_at_far_end());

    link->int_shut = false;
    link_shut_ext(link);
    EXPECT_TRUE(link_is_shut(link));
}

TEST_F(Link, ShuttingShowsAtTheFarEndAtOnceAndKeepsTheNumber)
{
    link_shut_ext(link);

    EXPECT_TRUE(ended_at_far_end());
    EXPECT_TRUE(is_open(pair[0]));
}

TEST_F(Link, ShuttingALoopbackSocketThatIsNotThereDoesNothing)
{
    link_shut_int(link);
    EXPECT_FALSE(link_is_shut(link));

    build_int();
    link_shut_int(link);
    EXPECT_TRUE(link->int_shut);
}

// Whoever comes second must not touch the number.
TEST_F(Link, ASecondShutLeavesTheNumberAlone)
{
    link_shut_ext(link);
    int other[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, other), 0);
    ASSERT_EQ(dup3(other[0], pair[0], O_CLOEXEC), pair[0]);

    link_shut_ext(link);

    char byte;
    EXPECT_EQ(recv(other[1], &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(other[0]);
    close(other[1]);
}

TEST_F(Link, ShuttingWakesAThreadThatReadsTheConnection)
{
    std::atomic<long> result{99};
    std::thread reader([&] {
        char byte;
        result = recv(pair[0], &byte, 1, 0);
    });

    link_shut_ext(link);
    reader.join();

    EXPECT_EQ(result, 0);
}

TEST_F(Link, ShuttingWakesAThreadThatReadsTheLoopbackSocket)
{
    build_int();
    std::atomic<long> result{99};
    std::thread reader([&] {
        char byte;
        result = recv(link->int_sock, &byte, 1, 0);
    });

    link_shut_int(link);
    reader.join();

    EXPECT_LE(result, 0);
}

TEST_F(Link, ShuttingWakesAThreadThatWaitsForEither)
{
    build_int();
    std::atomic<int> result{99};
    std::thread waiter([&] {
        pollfd sockets[] = {{pair[0], POLLIN, 0}, {link->int_sock, POLLIN, 0}};
        result = poll(sockets, 2, static_cast<int>(long_enough.count()));
    });

    link_shut_int(link);
    waiter.join();

    EXPECT_EQ(result, 1);
}

TEST_F(Link, ManyThreadsMayShutItAtOnce)
{
    build_int();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) {
        link_hold(link);
        threads.emplace_back([this] {
            link_shut_ext(link);
            link_shut_int(link);
            link_drop(link);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(ended_at_far_end());
    EXPECT_TRUE(is_open(pair[0]));
}

// ---- holders -----------------------------------------------------------------------------------

TEST_F(Link, TheLastHolderClosesBothNumbers)
{
    build_int();
    const int int_sock = link->int_sock;
    link_hold(link);
    link_hold(link);

    link_drop(link);
    link_drop(link);
    EXPECT_TRUE(is_open(pair[0]));
    EXPECT_TRUE(is_open(int_sock));
    drop();
    EXPECT_FALSE(is_open(pair[0]));
    EXPECT_FALSE(is_open(int_sock));
}

TEST_F(Link, ClosesItsOneNumberWhenThereIsNoLoopbackSocket)
{
    drop();
    EXPECT_FALSE(is_open(pair[0]));
    EXPECT_TRUE(ended_at_far_end());
}

// ---- the pool ----------------------------------------------------------------------------------

TEST(LinkPool, HasRoomForThreeAtOnce)
{
    const inventory before;
    link_pool pool = {};
    device_link* links[3];
    for (auto& link : links) {
        link = link_open(pool, ::socket(AF_INET, SOCK_STREAM, 0));
    }
    EXPECT_NE(links[0], links[1]);
    EXPECT_NE(links[1], links[2]);
    EXPECT_NE(links[0], links[2]);
    for (device_link* link : links) {
        link_drop(link);
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST(LinkPool, GivesAFreedLinkAgainLikeNew)
{
    link_pool pool = {};
    device_link* const kept_a = link_open(pool, ::socket(AF_INET, SOCK_STREAM, 0));
    device_link* const used = link_open(pool, ::socket(AF_INET, SOCK_STREAM, 0));
    device_link* const kept_b = link_open(pool, ::socket(AF_INET, SOCK_STREAM, 0));
    std::atomic<int> int_port{0};
    std::atomic<int> int_sock{-1};
    ASSERT_EQ(build_int_sock(&int_sock, &int_port), 0);
    used->int_sock = int_sock.load();
    link_shut_ext(used);
    link_shut_int(used);
    link_drop(used);

    const int fresh_sock = ::socket(AF_INET, SOCK_STREAM, 0);
    device_link* const fresh = link_open(pool, fresh_sock);

    EXPECT_EQ(fresh, used);
    EXPECT_FALSE(link_is_shut(fresh));
    EXPECT_EQ(fresh->ext_sock, fresh_sock);
    EXPECT_EQ(fresh->int_sock, -1);
    EXPECT_EQ(fresh->holders, 1);
    link_drop(kept_a);
    link_drop(kept_b);
    link_drop(fresh);
}

// ---- the record's current link -----------------------------------------------------------------

namespace
{

class RecordLink : public table_user
{
protected:
    RecordLink()
    {
        user = sdk_users[alloc_sdkuser()];
    }
    ~RecordLink() override
    {
        sdk_user_set_link(user, nullptr);
    }

    device_link* open_link()
    {
        return link_open(user->links, ::socket(AF_INET, SOCK_STREAM, 0));
    }

    zu_sdk_user* user;
};

} // namespace

TEST_F(RecordLink, IsNoneAtFirst)
{
    EXPECT_EQ(sdk_user_take_link(user), nullptr);
}

TEST_F(RecordLink, IsTakenWithAHold)
{
    device_link* const link = open_link();
    sdk_user_set_link(user, link);
    EXPECT_EQ(link->holders, 1);

    EXPECT_EQ(sdk_user_take_link(user), link);
    EXPECT_EQ(link->holders, 2);
    link_drop(link);
}

TEST_F(RecordLink, IsDroppedWhenAnotherTakesItsPlace)
{
    device_link* const former = open_link();
    const int former_sock = former->ext_sock;
    sdk_user_set_link(user, former);
    device_link* const next = open_link();

    sdk_user_set_link(user, next);

    EXPECT_FALSE(is_open(former_sock));
    EXPECT_TRUE(is_open(next->ext_sock));
    device_link* const taken = sdk_user_take_link(user);
    EXPECT_EQ(taken, next);
    link_drop(taken);
}

TEST_F(RecordLink, StaysOpenForWhoeverHasTakenIt)
{
    device_link* const link = open_link();
    const int sock = link->ext_sock;
    sdk_user_set_link(user, link);
    device_link* const taken = sdk_user_take_link(user);

    sdk_user_set_link(user, nullptr);

    EXPECT_EQ(sdk_user_take_link(user), nullptr);
    EXPECT_TRUE(is_open(sock));
    link_drop(taken);
    EXPECT_FALSE(is_open(sock));
}

TEST_F(RecordLink, CanBeTakenAndShutWhileAnotherTakesItsPlace)
{
    const inventory before;
    std::atomic<bool> over{false};
    std::atomic<int> shut{0};
    std::thread taker([&] {
        while (!over) {
            device_link* const link = sdk_user_take_link(user);
            if (link != nullptr) {
                link_shut_ext(link);
                link_shut_int(link);
                link_drop(link);
                shut++;
            }
        }
    });
    for (int round = 0; round < 2000 || shut < 100; round++) {
        sdk_user_set_link(user, link_open(user->links, ::socket(AF_INET, SOCK_STREAM, 0)));
    }
    over = true;
    taker.join();
    sdk_user_set_link(user, nullptr);
    EXPECT_EQ(before.left_over(), "");
}
