// A Login that fails leaves nothing behind: which lines each failure writes at which log level, and
// what the caller's handle holds then.
#include <netinet/in.h>
#include <sys/socket.h>

#include "login_kit.h"

using namespace support;

namespace
{

const story overtime = {trace("pthread_create devmanager:0x* ok\n"),
                        error("[../source/src/zu_net_dev_api.cpp *]conncet overtime\n")};

class LoginFailure : public at_level
{
protected:
    LoginFailure() : lib(std::make_unique<library>(0))
    {
    }
    void SetUp() override
    {
        device = std::make_unique<serving_device>();
    }
    void TearDown() override
    {
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
        device.reset();
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }
    story up_to_the_wait() const
    {
        return {trace("enter ZU_NET_DEV_Login\n"), trace("sdkuser_index: *, sdk_user: 0x*\n"),
                trace("username:admin password:secret host:127.0.0.1 port:" +
                      std::to_string(device->port()) + "\n")};
    }
    // Before there is a record, the handle is left as it was.
    void expect_failure_without_a_record(const std::string& line)
    {
        const log_tap log(level);
        EXPECT_EQ(log_in(&handle, device->port()), -1);
        EXPECT_TRUE(told_by(log, login_name, level,
                            {trace("enter ZU_NET_DEV_Login\n"), {log_at_every_level, 0, line}}));
        EXPECT_EQ(handle, 77U);
    }

    const inventory before;
    std::unique_ptr<library> lib;
    std::unique_ptr<serving_device> device;
    ZU_U32 handle = 77;
};

} // namespace

TEST_P(LoginFailure, WithoutAReceiverPipeIsToldAtEveryLevel)
{
    const fault f("pipe", EMFILE, 1, 1);
    expect_failure_without_a_record(
        "Failed to create receiver pipe in Login: Too many open files\n");
}

TEST_P(LoginFailure, WithoutASenderPipeIsToldAtEveryLevelAndGivesTheOtherBack)
{
    const fault f("pipe", ENFILE, 2, 1);
    expect_failure_without_a_record(
        "Failed to create sender pipe in Login: Too many open files in system\n");
}

TEST_P(LoginFailure, WithoutMemoryEndsAfterTheLineOfTheTable)
{
    const fault f("mmap", ENOMEM, 1, 1);
    const log_tap log(level);
    EXPECT_EQ(log_in(&handle, device->port()), -1);
    EXPECT_TRUE(all_told(log, login_name, level,
                         {trace("enter ZU_NET_DEV_Login\n"),
                          {log_at_error_levels, 0, "alloc sdk user fail!\n", "alloc_sdkuser"}}));
    EXPECT_EQ(handle, 77U);
}

TEST_P(LoginFailure, WithoutADeviceManagerThreadHasWrittenTheHandle)
{
    const fault f("pthread_create", EAGAIN, 1, 1);
    const before_call connects("connect");
    const log_tap log(level);
    EXPECT_EQ(log_in(&handle, device->port()), -1);
    EXPECT_TRUE(told_by(log, login_name, level,
                        up_to_the_wait() + story{error("pthread_create devmanager fail!\n")}));
    EXPECT_EQ(handle, 0x43210000U);
    EXPECT_EQ(connects.count(), 0);
}

TEST_P(LoginFailure, ByARefusedFirstConnectionComesWithoutWaitingAndWithoutASecondAttempt)
{
    const unsigned short port = device->port();
    device->refuse();
    const before_call attempts("socket");
    const before_call pauses("usleep");
    const log_tap log(level);
    EXPECT_EQ(log_in(&handle, port), -1);
    EXPECT_EQ(attempts.count(), 1);
    EXPECT_LT(pauses.count(), 101); // the wait of three seconds has 101 passes
    EXPECT_TRUE(told_by(log, login_name, level, up_to_the_wait() + overtime));
    EXPECT_TRUE(told_by(log, manager_name, level,
                        {trace("enter sdk_devmanager_main pid: 0x*, num: *\n"),
                         error("tcp_connect to 127.0.0.1:" + std::to_string(port) + " fail!\n"),
                         trace("&&&&&&&&&&&& exit from devmanager\n")}));
    EXPECT_EQ(handle, 0x43210000U);
}

TEST_P(LoginFailure, ByAReceiverThatCannotBeCreatedComesAfterThreeSeconds)
{
    fault f("pthread_create", EAGAIN);
    f.on_thread(manager_name);
    const log_tap log(level);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(log_in(&handle, device->port()), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3030));
    EXPECT_TRUE(told_by(log, login_name, level, up_to_the_wait() + overtime));
    EXPECT_TRUE(told_by(log, manager_name, level,
                        {trace("enter sdk_devmanager_main pid: 0x*, num: *\n"),
                         trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
                         error("pthread_create msgrecver fail!\n")}));
    EXPECT_EQ(handle, 0x43210000U);
    EXPECT_EQ(device->connections_made(), 1);
}

TEST_P(LoginFailure, ByASenderThatCannotBeCreatedEndsTheReceiverToo)
{
    fault f("pthread_create", EAGAIN, 2);
    f.on_thread(manager_name);
    const log_tap log(level);
    EXPECT_EQ(log_in(&handle, device->port()), -1);
    EXPECT_TRUE(told_by(log, manager_name, level,
                        {trace("enter sdk_devmanager_main pid: 0x*, num: *\n"),
                         trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
                         trace("pthread_create msgrecver:0x* ok\n"),
                         error("pthread_create msgsender fail!\n")}));
    EXPECT_TRUE(login_threads_gone());
}

INSTANTIATE_TEST_SUITE_P(Told, LoginFailure, all_levels(), level_name);

TEST(Login, FailsWhenTheWorkersAreNotRunningInTimeAndWaitsForThemToEnd)
{
    login_with_late_sender at;
    // Login's three seconds are over before the device manager's five, however long a busy machine
    // makes the pauses of the one and the other.
    pause_hold in_the_wait(manager_name,
                           [&] { return at.late_sender.reached(std::chrono::milliseconds(0)); });
    ASSERT_TRUE(at.late_sender.reached());
    ASSERT_TRUE(at.is_being_ended());
    in_the_wait.let_go();
    ASSERT_TRUE(at.log.wait_for("Failed to start worker threads in time or connection lost. "
                                "Triggering reconnect...\n"));
    EXPECT_TRUE(eventually([] { return threads_named("sdk_devmanager_main") == 0; }));
    EXPECT_FALSE(at.login.returned()); // a worker that has not begun is still a worker
    at.late_sender.let_go();
    EXPECT_EQ(at.login.result(), -1);
    EXPECT_TRUE(at.log.has_beginning("[../source/src/zu_net_dev_api.cpp "));
    EXPECT_EQ(at.device.connections_made(), 1);
}

TEST(Login, ToADeviceThatAlwaysClosesAtOnceFailsAndLeavesNothing)
{
    login_with_late_sender at(closes_at_once());
    ASSERT_TRUE(at.log.wait_for("Connection lost while waiting for worker threads to start.\n"));
    ASSERT_TRUE(eventually([&] { return at.device.connections_made() > 1; }));
    ASSERT_TRUE(at.log.wait_for_beginning("[../source/src/zu_net_dev_api.cpp "));
    ASSERT_TRUE(at.is_being_ended());
    at.late_sender.let_go();
    EXPECT_EQ(at.login.result(), -1);
    EXPECT_FALSE(at.log.has(pause_line));
}

TEST(Login, SucceedsWhenTheDeviceServesAfterClosingOnce)
{
    const library lib;
    std::atomic<int> connection{0};
    behaviour how;
    how.on_connect = [&](peer&) { return ++connection > 1; };
    serving_device device(how);
    live_login login(device.port());
    EXPECT_EQ(login.result(), 0);
    // A login that was quick is up once already, on the connection that is about to close.
    EXPECT_TRUE(eventually(
        [&] { return connection == 2 && device.links_open() == 1 && login.wait_until_up(); }));
    EXPECT_EQ(login.start_stream(), 0);
}

TEST(Login, CutsUserNamePasswordAndHostToFifteenCharacters)
{
    const library lib;
    // A device at the address that the cut leaves of a host text of 17 characters.
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(0x7F646464); // 127.100.100.100
    socklen_t length = sizeof(address);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(listener, 5), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const unsigned short port = ntohs(address.sin_port);

    const log_tap log(2);
    ZU_U32 handle = 0;
    ASSERT_EQ(ZU_NET_DEV_Login(&handle, "abcdefghijklmnopq", "ABCDEFGHIJKLMNOPQRST",
                               "127.100.100.10099", port),
              0);
    EXPECT_TRUE(log.has(7, login_name,
                        "username:abcdefghijklmno password:ABCDEFGHIJKLMNO "
                        "host:127.100.100.100 port:" +
                            std::to_string(port) + "\n"));
    {
        const held_user user(handle);
        EXPECT_STREQ(user->username, "abcdefghijklmno");
        EXPECT_STREQ(user->password, "ABCDEFGHIJKLMNO");
        EXPECT_STREQ(user->devname, "127.100.100.100");
        EXPECT_STREQ(user->hostaddr, "");
        EXPECT_EQ(user->port, port);
        EXPECT_EQ(user->connect_flag, 2);
    }
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    close(listener);
}

TEST(Login, TakesAHostThatIsNoAddressForTheMachineItself)
{
    const library lib;
    serving_device device;
    const log_tap log(2);
    ZU_U32 handle = 0;
    ASSERT_EQ(log_in(&handle, device.port(), "no address"), 0);
    EXPECT_TRUE(log.has_beginning("tcp_connect to no address:"));
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
}
