// Logout in every state of the connection. Each case ends with nothing left: no thread, no
// descriptor, no record, and no connection at the device.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "login_kit.h"

using namespace support;

namespace
{

constexpr char closing_lines[] = "####### exit devmanager()\n";

class LogoutState : public testing::Test
{
protected:
    LogoutState()
        : lib(std::make_unique<library>(0)), device(std::make_unique<serving_device>()),
          log(std::make_unique<log_tap>(2))
    {
        EXPECT_EQ(log_in(&handle, device->port()), 0);
    }
    void TearDown() override
    {
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
        EXPECT_TRUE(login_threads_gone());
        EXPECT_TRUE(eventually([&] { return device->links_open() == 0; }));
        log.reset();
        device.reset();
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }
    ZU_S32 log_out() const
    {
        return ZU_NET_DEV_Logout(handle);
    }
    // The pause ends with the login's end in view, however long a busy machine takes to get there.
    ZU_S32 log_out_in_the_pause(lost_link& lost) const
    {
        const held_user user(handle);
        running_call logout([&] { return log_out(); });
        EXPECT_TRUE(eventually([&] { return user->devmanager_run == 0; }));
        lost.go_on();
        return logout.result();
    }

    const inventory before;
    std::unique_ptr<library> lib;
    std::unique_ptr<serving_device> device;
    std::unique_ptr<log_tap> log;
    ZU_U32 handle = 0;
};

// Something that listens, but whose queue of connections is full: a connect to it hangs.
class hanging_device
{
public:
    explicit hanging_device(unsigned short port = 0)
        : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        socklen_t length = sizeof(address);
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(listen(listener, 0), 0);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        while (callers.size() < 16 && !caller_hangs()) {
        }
        EXPECT_LT(callers.size(), 16U);
    }
    ~hanging_device()
    {
        for (const int fd : callers) {
            close(fd);
        }
        close(listener);
    }
    hanging_device(const hanging_device&) = delete;
    hanging_device& operator=(const hanging_device&) = delete;

    unsigned short port() const
    {
        return ntohs(address.sin_port);
    }

private:
    bool caller_hangs()
    {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        callers.push_back(fd);
        connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        pollfd waiting = {fd, POLLOUT, 0};
        return poll(&waiting, 1, 300) == 0;
    }

    sockaddr_in address = {};
    const int listener;
    std::vector<int> callers;
};

} // namespace

TEST_F(LogoutState, WhileTheLinkIsUp)
{
    EXPECT_EQ(log_out(), 0);
}

TEST_F(LogoutState, WhileAConnectHangs)
{
    lost_link lost(*device);
    const unsigned short port = device->port();
    device->refuse();
    const hanging_device hanging(port);
    const before_call connects("connect");
    lost.go_on();
    ASSERT_TRUE(eventually([&] { return connects.count() > 0; }));
    EXPECT_EQ(log_out(), 0);
}

TEST_F(LogoutState, WhileTheDeviceRefusesToConnect)
{
    const before_call sockets("socket");
    lost_link lost(*device);
    device->refuse();
    lost.go_on();
    ASSERT_TRUE(eventually([&] { return sockets.count() > 20; }));
    EXPECT_EQ(used_word(handle), -1);
    EXPECT_EQ(log_out(), 0);
    EXPECT_EQ(device->connections_made(), 1);
}

TEST_F(LogoutState, InTheStartUpWaitWaitsForWorkersThatHaveNotBegun)
{
    late_sender_hold late_sender;
    // The wait lasts five seconds, which a busy machine may well spend on something else.
    pause_hold in_the_wait(manager_name,
                           [&] { return late_sender.reached(std::chrono::milliseconds(0)); });
    drop(*device);
    ASSERT_TRUE(in_the_wait.reached());
    running_call logout([&] { return log_out(); });
    {
        const held_user user(handle);
        EXPECT_TRUE(eventually([&] { return user->devmanager_run == 0; }));
        in_the_wait.let_go();
        EXPECT_TRUE(log->wait_for("####### exit msgrecver() finish\n"));
        EXPECT_TRUE(all_along(
            [&] {
                return !logout.returned() && fcntl(user->shutdown_pipe_sender[0], F_GETFD) != -1 &&
                       fcntl(user->shutdown_pipe_recver[0], F_GETFD) != -1;
            },
            std::chrono::milliseconds(300)));
    }
    late_sender.let_go();
    EXPECT_EQ(logout.result(), 0);
}

TEST_F(LogoutState, JustAfterTheLinkHasComeUpAgain)
{
    log_hold just_up(manager_name, "sdk_user->used = ZU_SDK_USER_USED;\n");
    drop(*device);
    ASSERT_TRUE(just_up.reached());
    running_call logout([&] { return log_out(); });
    ASSERT_TRUE(log->wait_for(closing_lines));
    just_up.let_go();
    EXPECT_EQ(logout.result(), 0);
}

TEST_F(LogoutState, BetweenAConnectionAndItsWorkersEndsThatConnectionSilently)
{
    log_hold connected(manager_name, "pthread_create msgrecver:");
    drop(*device);
    ASSERT_TRUE(connected.reached());
    running_call logout([&] { return log_out(); });
    ASSERT_TRUE(log->wait_for(closing_lines));
    connected.let_go();
    EXPECT_EQ(logout.result(), 0);
    EXPECT_TRUE(eventually([&] { return device->connections_made() == 2; }));
}

TEST_F(LogoutState, WhileAConnectionIsBeingMadeEndsItThoughLogoutHasNotSeenIt)
{
    // Logout looks at the sockets first: there are none yet. Then the connection is made.
    log_hold logging_out(logout_name, closing_lines);
    lost_link lost(*device);
    running_call logout([&] { return log_out(); });
    ASSERT_TRUE(logging_out.reached());
    lost.go_on();
    ASSERT_TRUE(eventually([&] { return used_word(handle) == ZU_SDK_USER_USED; }));
    EXPECT_TRUE(has_link(*device));
    logging_out.let_go();
    EXPECT_EQ(logout.result(), 0);
    for (const auto& line : log->messages_of(logout_name)) {
        EXPECT_THAT(line, testing::Not(testing::StartsWith("close ")));
    }
}

TEST_F(LogoutState, InTheTeardown)
{
    log_hold tearing_down(manager_name, "@@@@@ exit msgserder()\n");
    drop(*device);
    ASSERT_TRUE(tearing_down.reached());
    running_call logout([&] { return log_out(); });
    ASSERT_TRUE(log->wait_for(closing_lines));
    tearing_down.let_go();
    EXPECT_EQ(logout.result(), 0);
    // Both have told of both sockets: the lines follow the fields.
    EXPECT_TRUE(log->has_beginning("close ext_sock, ext_sock: "));
    EXPECT_TRUE(log->has_beginning("close int_sock, int_sock: "));
    EXPECT_TRUE(log->has(7, manager_name, "close ext_sock\n"));
    EXPECT_TRUE(log->has(7, manager_name, "close int_sock\n"));
}

TEST_F(LogoutState, InTheThreeSecondPauseNeverConnectsAgain)
{
    lost_link lost(*device);
    const before_call sockets("socket");
    EXPECT_EQ(log_out_in_the_pause(lost), 0);
    EXPECT_EQ(sockets.count(), 0);
}

TEST_F(LogoutState, InTheThreeSecondPauseHasNoSocketsToTellOf)
{
    lost_link lost(*device);
    EXPECT_EQ(used_word(handle), -1);
    EXPECT_EQ(log_out_in_the_pause(lost), 0);
    const story whole = {
        trace("enter ZU_NET_DEV_Logout\n"),          trace("####### exit devmanager()\n"),
        trace("####### exit devmanager() finish\n"), trace("####### exit msgsender()\n"),
        trace("####### exit msgsender() finish\n"),  trace("####### exit msgrecver()\n"),
        trace("####### exit msgrecver() finish\n"),  trace("leave ZU_NET_DEV_Logout\n")};
    EXPECT_TRUE(told_by(*log, logout_name, 2, whole));
}

TEST_F(LogoutState, InTheRestartOfAStreamThatIsNeverAnswered)
{
    ZU_S_STREAM_INFO_EXT info = {};
    info.u8Type = 1;
    ASSERT_EQ(ZU_NET_DEV_StartStreamExt(handle, &info), 0);
    log_hold restarting("in_startstream", "enter in_startstream\n");
    device->behave(silent());
    drop(*device);
    ASSERT_TRUE(restarting.reached());
    set_log_level(1); // has the time limits too
    restarting.let_go();
    ASSERT_TRUE(eventually([&] { return device->received(0x1001).size() >= 2; }));
    EXPECT_EQ(log_out(), 0);
}

TEST_F(LogoutState, AfterTheDeviceManagerHasGivenUpForWantOfAWorker)
{
    lost_link lost(*device);
    fault f("pthread_create", EAGAIN, 2);
    f.on_thread(manager_name);
    lost.go_on();
    ASSERT_TRUE(log->wait_for("pthread_create msgsender fail!\n"));
    ASSERT_TRUE(eventually([] { return threads_named(manager_name) == 0; }));
    EXPECT_TRUE(has_link(*device));
    EXPECT_TRUE(eventually([] { return threads_named("sdk_msgrecver_main") == 1; }));
    EXPECT_EQ(used_word(handle), -1);
    EXPECT_EQ(log_out(), 0);
    EXPECT_FALSE(log->has("&&&&&&&&&&&& exit from devmanager\n")); // it gave up without its line
    EXPECT_TRUE(log->has_beginning("close ext_sock, ext_sock: "));
}

TEST(LogoutFirstConnect, OfALoginWhoseFirstConnectHangsIsTheLoginsOwnAndFailsWithinItsLimit)
{
    const inventory before;
    {
        const library lib;
        const hanging_device hanging;
        const log_tap log(1);
        ZU_U32 handle = 0;
        EXPECT_EQ(log_in(&handle, hanging.port()), -1);
        EXPECT_TRUE(
            log.has(0, manager_name,
                    "tcp_connect to 127.0.0.1:" + std::to_string(hanging.port()) + " fail!\n"));
    }
    EXPECT_EQ(before.left_over(), "");
}
