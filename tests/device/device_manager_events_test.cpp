// Losing the link and coming up again: the events, the three-second pause, the lines at every log
// level, and the connected event of the first connection, which never reaches an application.
#include "login_kit.h"

using namespace support;

namespace
{

constexpr char handler_failed[] = "pthread_create eventhandler( connected ) fail!\n";

story loss(const char* told_event)
{
    return {trace("msgrecver or msgsender has exited!\n"),
            trace("sdk_user->used = -1;\n"),
            trace("@@@@@ exit msgserder()\n"),
            trace("@@@@@@ exit msgrecver()\n"),
            trace("close ext_sock\n"),
            trace("close int_sock\n"),
            trace("@@@@@ All worker threads exited and pipes flushed.\n"),
            trace(told_event),
            {log_at_error_levels, 7, pause_line},
            trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
            trace("pthread_create msgrecver:0x* ok\n"),
            trace("pthread_create msgsender:0x* ok\n"),
            trace("msgrecver and msgsender both started! pid: 0x*\n"),
            trace("sdk_user->used = ZU_SDK_USER_USED;\n")};
}

class Reconnection : public at_level
{
protected:
    const library lib{0};
    serving_device device;
};

} // namespace

TEST_P(Reconnection, TellsItsStoryWithAnEventCallbackAndAStream)
{
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    ASSERT_EQ(login.start_stream(), 0);
    const log_tap log(level);
    drop(device);
    ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_TRUE(
        told_by(log, manager_name, level,
                loss("call event_callback disconnected\n") +
                    story{trace("sdk_user->sinked = 1\n"), trace("##### sdk_user->sinked == 1\n"),
                          trace("call event_callback connected\n")}));
}

TEST_P(Reconnection, TellsItsStoryWithoutAnEventCallback)
{
    live_login login(device.port());
    const log_tap log(level);
    drop(device);
    ASSERT_TRUE(eventually([&] { return device.connections_made() == 2; }));
    ASSERT_TRUE(login.wait_until_up());
    if (level == 2) {
        const char last[] = "callback connected, but sdk_user->event_callback == NULL\n";
        ASSERT_TRUE(log.wait_for(last));
    }
    EXPECT_TRUE(
        told_by(log, manager_name, level,
                loss("callback disconnected, but sdk_user->event_callback == NULL\n") +
                    story{trace("sdk_user->sinked = 0\n"),
                          trace("callback connected, but sdk_user->event_callback == NULL\n")}));
}

TEST_P(Reconnection, TellsOfHandlersThatCannotBeCreatedAndGoesOnWithoutTheEvents)
{
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    const log_tap log(level);
    fault no_disconnected("pthread_create", EAGAIN, 1, 1); // then come both workers
    fault no_connected("pthread_create", EAGAIN, 3, 1);
    no_disconnected.on_thread(manager_name);
    no_connected.on_thread(manager_name);
    drop(device);
    ASSERT_TRUE(eventually([&] { return no_connected.hits() == 1; }));
    ASSERT_TRUE(level < 1 || eventually([&] { return log.count(handler_failed) == 2; }));
    story whole = loss("call event_callback disconnected\n");
    whole.insert(whole.begin() + 8, error(handler_failed));
    EXPECT_TRUE(
        told_by(log, manager_name, level,
                whole + story{trace("sdk_user->sinked = 0\n"),
                              trace("call event_callback connected\n"), error(handler_failed)}));
    EXPECT_TRUE(login.wait_until_up());
    EXPECT_EQ(login.start_stream(), 0);
    EXPECT_THAT(link_events(login.seen), testing::ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Told, Reconnection, all_levels(), level_name);

TEST(Events, OfALostLinkAreDisconnectedThenAfterThreeSecondsConnected)
{
    const library lib(0);
    serving_device device;
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    for (int time = 1; time <= 2; time++) {
        const auto up = std::chrono::steady_clock::now();
        drop(device);
        ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED, time));
        EXPECT_GE(std::chrono::steady_clock::now() - up, std::chrono::seconds(3));
        EXPECT_EQ(login.seen.count(ZU_NET_DEV_DISCONNECTED), time);
        EXPECT_TRUE(eventually([&] { return device.connections_made() == time + 1; }));
    }
    EXPECT_THAT(link_events(login.seen), testing::ElementsAre(3, 1, 3, 1));
}

TEST(Events, OfAResetLinkAreTheSame)
{
    const library lib(0);
    serving_device device;
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    ASSERT_TRUE(has_link(device));
    device.reset_links();
    ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_THAT(link_events(login.seen), testing::ElementsAre(3, 1));
}

TEST(Events, CarryTheHandleAndTheUserPointer)
{
    const library lib(0);
    serving_device device;
    live_login login(device.port());
    std::atomic<ZU_U32> handle{0};
    const auto callback = [](ZU_U32 from, ZU_U32, ZU_VOID* mine) -> ZU_S32 {
        *static_cast<std::atomic<ZU_U32>*>(mine) = from;
        return 0;
    };
    ASSERT_EQ(ZU_NET_DEV_SetEventCallBack(login.handle(), callback, &handle), 0);
    drop(device);
    EXPECT_TRUE(eventually([&] { return handle == login.handle(); }));
    EXPECT_EQ(login.log_out(), 0);
}

TEST(Events, OfALinkThatTheSystemNoLongerReportsAsEstablishedAreTheSame)
{
    const library lib(0);
    serving_device device;
    live_login login(device.port());
    ASSERT_TRUE(login.watch());
    const log_tap log(0);
    fault dead("getsockopt", EIO, 1, 1);
    dead.on_thread(manager_name);
    ASSERT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_TRUE(log.has(7, "check_tcp_socket_status", "client is disconnected !\n"));
    EXPECT_EQ(login.seen.count(ZU_NET_DEV_DISCONNECTED), 1);
}

TEST(Events, DoNotIncludeTheFirstConnectionForACallbackAttachedBeforeItIsReported)
{
    const library lib(0);
    serving_device device;
    const log_tap log(2);
    // The device manager has let Login return, but has not reported yet.
    log_hold not_yet(manager_name, "sdk_user->sinked = 0\n");
    live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    ASSERT_TRUE(not_yet.reached());
    ASSERT_TRUE(login.watch());
    not_yet.let_go();
    EXPECT_TRUE(log.wait_for("callback connected, but sdk_user->event_callback == NULL\n"));
    EXPECT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_HEARTBEAT));
    EXPECT_EQ(login.seen.count(ZU_NET_DEV_CONNECTED), 0);
}

TEST(Events, IncludeAReconnectionForACallbackAttachedBeforeItIsReported)
{
    const library lib(0);
    serving_device device;
    const log_tap log(2);
    live_login login(device.port());
    log_hold not_yet(manager_name, "sdk_user->sinked = 0\n");
    drop(device);
    ASSERT_TRUE(not_yet.reached());
    ASSERT_TRUE(login.watch());
    not_yet.let_go();
    EXPECT_TRUE(login.seen.wait_for_event(ZU_NET_DEV_CONNECTED));
}

TEST(Events, OfTheFirstConnectionNeverReachACallbackAttachedAtOnceHoweverOftenOneLogsIn)
{
    const library lib(0);
    serving_device device;
    std::vector<std::thread> threads;
    std::atomic<int> connected{0};
    std::atomic<int> logins{0};
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 8; round++) {
                live_login login(device.port());
                logins += login.result() == 0 && login.watch() ? 1 : 0;
                device.send_to_all(make_message(0x1022, 0, {}));
                login.seen.wait_for_event(ZU_NET_DEV_HEARTBEAT);
                connected += login.seen.count(ZU_NET_DEV_CONNECTED);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(logins, 64);
    EXPECT_EQ(connected, 0);
}
