// The whole log of one round of login and logout, function by function, at every log level.
#include "login_kit.h"

using namespace support;

namespace
{

class LoginRound : public at_level
{
};

story login_story(unsigned short port)
{
    return {
        trace("enter ZU_NET_DEV_Login\n"),
        trace("sdkuser_index: 0, sdk_user: 0x*\n"),
        trace("username:admin password:secret host:127.0.0.1 port:" + std::to_string(port) + "\n"),
        trace("pthread_create devmanager:0x* ok\n"),
        trace("[../source/src/zu_net_dev_api.cpp *]conncet success\n"),
        trace("leave ZU_NET_DEV_Login\n")};
}

story logout_story(int ext_sock, int int_sock)
{
    return {trace("enter ZU_NET_DEV_Logout\n"),
            trace("close ext_sock, ext_sock: " + std::to_string(ext_sock) + "\n"),
            trace("close int_sock, int_sock: " + std::to_string(int_sock) + "\n"),
            trace("####### exit devmanager()\n"),
            trace("####### exit devmanager() finish\n"),
            trace("####### exit msgsender()\n"),
            trace("####### exit msgsender() finish\n"),
            trace("####### exit msgrecver()\n"),
            trace("####### exit msgrecver() finish\n"),
            trace("leave ZU_NET_DEV_Logout\n")};
}

story manager_story(unsigned short port, int ext_sock)
{
    return {trace("enter sdk_devmanager_main pid: 0x*, num: 0\n"),
            trace("tcp_connect to 127.0.0.1:" + std::to_string(port) +
                  " ok, ext_sock: " + std::to_string(ext_sock) + "\n"),
            trace("pthread_create msgrecver:0x* ok\n"),
            trace("pthread_create msgsender:0x* ok\n"),
            trace("msgrecver and msgsender both started! pid: 0x*\n"),
            trace("sdk_user->used = ZU_SDK_USER_USED;\n"),
            trace("sdk_user->sinked = 0\n"),
            trace("callback connected, but sdk_user->event_callback == NULL\n")};
}

struct sockets {
    int ext_sock;
    int int_sock;
    int int_port;
};

sockets sockets_of(ZU_U32 handle)
{
    const held_user user(handle);
    return {user->ext_sock, user->int_sock, user->int_port};
}

} // namespace

TEST_P(LoginRound, TellsItsStoryWhenTheDeviceManagerEndsSilently)
{
    const inventory before;
    {
        const stopped_clock clock; // no heartbeat
        const library lib(0);
        serving_device device;
        const log_tap log(level);
        ZU_U32 handle = 0;
        ASSERT_EQ(log_in(&handle, device.port()), 0);
        const sockets s = sockets_of(handle);
        const held_user user(handle);
        // The device manager is held between two looks until it has been told to stop.
        pause_hold asleep(manager_name);
        ASSERT_TRUE(asleep.reached());
        running_call logout([&] { return ZU_NET_DEV_Logout(handle); });
        ASSERT_TRUE(eventually([&] { return user->devmanager_run == 0; }));
        asleep.let_go();
        EXPECT_EQ(logout.result(), 0);

        EXPECT_TRUE(told_by(log, login_name, level, login_story(device.port())));
        EXPECT_TRUE(told_by(log, "alloc_sdkuser", level, {trace("alloc sdk user:0\n")}));
        EXPECT_TRUE(told_by(log, "build_int_sock", level,
                            {trace("enter build_int_sock\n"), trace("leave build_int_sock\n"),
                             trace("int_sock:" + std::to_string(s.int_sock) +
                                   " int_port:" + std::to_string(s.int_port) + "\n")}));
        EXPECT_TRUE(told_by(log, manager_name, level,
                            manager_story(device.port(), s.ext_sock) +
                                story{trace("&&&&&&&&&&&& exit from devmanager\n")}));
        EXPECT_TRUE(told_by(log, logout_name, level, logout_story(s.ext_sock, s.int_sock)));
        EXPECT_TRUE(told_by(log, "sdk_msgsender_main", level,
                            {trace("enter sdk_msgsender_main pid: 0x*\n"),
                             error("msgsender select faill!\n"),
                             trace("############ exit from msgsender, ret:-1\n")}));
        EXPECT_TRUE(told_by(log, "sdk_msgrecver_main", level,
                            {trace("enter sdk_msgrecver_main pid: 0x*\n"),
                             error("msgrecver select faill!\n"),
                             trace("$$$$$$$$$$$$ exit from msgrecver, ret:-1\n")}));
        // Nobody else has a word to say, and below level 1 nobody at all.
        const size_t total = log.lines().size();
        EXPECT_EQ(total, level == 2 ? 35U : level == 1 ? 2U : 0U);
    }
    EXPECT_EQ(before.left_over(), "");
}

TEST_P(LoginRound, TellsItsStoryWhenTheDeviceManagerNoticesTheDeadLinkFirst)
{
    const inventory before;
    {
        const library lib(0);
        serving_device device;
        watcher seen;
        const log_tap log(level);
        ZU_U32 handle = 0;
        ASSERT_EQ(log_in(&handle, device.port()), 0);
        ASSERT_EQ(ZU_NET_DEV_SetEventCallBack(handle, watcher::on_event, &seen), 0);
        const sockets s = sockets_of(handle);
        {
            // The link goes down under the device manager; Logout comes while it tears down, after
            // the workers have ended but before the sockets' fields are cleared.
            pause_hold tearing_down("sdk_msgrecver_main"); // its pause before it ends
            drop(device);
            ASSERT_TRUE(tearing_down.reached());
            const held_user user(handle);
            ASSERT_TRUE(eventually([&] { return user->used == -1; }));
            running_call logout([&] { return ZU_NET_DEV_Logout(handle); });
            ASSERT_TRUE(eventually([&] { return user->devmanager_run == 0; }));
            tearing_down.let_go();
            EXPECT_EQ(logout.result(), 0);
        }
        EXPECT_TRUE(
            told_by(log, manager_name, level,
                    manager_story(device.port(), s.ext_sock) +
                        story{trace("msgrecver or msgsender has exited!\n"),
                              trace("sdk_user->used = -1;\n"), trace("@@@@@ exit msgserder()\n"),
                              trace("@@@@@@ exit msgrecver()\n"), trace("close ext_sock\n"),
                              trace("close int_sock\n"),
                              trace("@@@@@ All worker threads exited and pipes "
                                    "flushed.\n"),
                              trace("call event_callback disconnected\n"),
                              trace("&&&&&&&&&&&& exit from devmanager\n")}));
        EXPECT_TRUE(told_by(log, logout_name, level, logout_story(s.ext_sock, s.int_sock)));
        EXPECT_EQ(seen.count(ZU_NET_DEV_CONNECTED), 0);
    }
    EXPECT_EQ(before.left_over(), "");
}

INSTANTIATE_TEST_SUITE_P(Told, LoginRound, all_levels(), level_name);

TEST(LoginRound, CountsOnlyTheStartLinesThatWereWritten)
{
    const library lib(0);
    serving_device device;
    const log_tap log(2);
    {
        const live_login first(device.port());
    }
    EXPECT_TRUE(log.has_beginning("enter sdk_devmanager_main pid: 0x"));
    set_log_level(1);
    {
        const live_login second(device.port());
    }
    set_log_level(2);
    {
        const live_login third(device.port());
    }
    const auto starts = log.messages_of(manager_name);
    std::vector<std::string> numbers;
    for (const auto& line : starts) {
        if (line.find("enter ") == 0) {
            numbers.push_back(line.substr(line.find("num: ")));
        }
    }
    EXPECT_THAT(numbers, testing::ElementsAre("num: 0\n", "num: 1\n"));
}

TEST(LoginRound, WritesTheStepsOfLoginInTheirOrder)
{
    const library lib(0);
    serving_device device;
    const log_tap log(2);
    const live_login login(device.port());
    ASSERT_TRUE(log.wait_for("sdk_user->used = ZU_SDK_USER_USED;\n")); // Login may be quicker
    const size_t up = place_of(log, manager_name, "sdk_user->used = ZU_SDK_USER_USED;\n");
    EXPECT_LT(place_of(log, "alloc_sdkuser", "alloc sdk user:0\n"), up);
    EXPECT_LT(place_of(log, "build_int_sock", "leave build_int_sock\n"), up);
    EXPECT_LT(up, log.lines().size());
    EXPECT_EQ(log.lines().front().message, "enter ZU_NET_DEV_Login\n");
}
