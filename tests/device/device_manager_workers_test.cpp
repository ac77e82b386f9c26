// The device manager and its two workers: the start-up wait, workers that cannot be created,
// workers that end, and the end of the device manager itself.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>

#include "device_manager.h"
#include "login_kit.h"

using namespace support;

namespace
{

constexpr char lost_line[] = "Connection lost while waiting for worker threads to start.\n";
constexpr char failed_line[] =
    "Failed to start worker threads in time or connection lost. Triggering reconnect...\n";
constexpr char gone_line[] = "client is disconnected !\n";

class Workers : public watched_login
{
protected:
    Workers()
    {
        EXPECT_TRUE(has_link(*device));
    }
    int count_of(const std::string& beginning) const
    {
        int count = 0;
        for (const auto& line : log->lines()) {
            count += line.message.compare(0, beginning.size(), beginning) == 0 ? 1 : 0;
        }
        return count;
    }
    // Ends and joins the device manager without a Logout. Its result.
    static void* join_manager(zu_sdk_user* user)
    {
        void* result = &result;
        pthread_join(user->devmanager, &result);
        user->devmanager_run = 0; // Logout shall not join it again
        return result;
    }
};

} // namespace

TEST_F(Workers, ThatDoNotReportWithinFiveSecondsCostTheConnectionAndTheNextComesWithoutAnEvent)
{
    late_sender_hold late_sender;
    std::chrono::steady_clock::time_point last_made; // a thread of the device manager's
    const before_call creations("pthread_create", [&] {
        if (on_thread_named(manager_name)) {
            last_made = std::chrono::steady_clock::now();
        }
    });
    drop(*device);
    ASSERT_TRUE(log->wait_for(failed_line));
    EXPECT_GE(std::chrono::steady_clock::now() - last_made, std::chrono::seconds(5));
    // The next connection comes at once, but no further worker while one of the former is left.
    ASSERT_TRUE(eventually([&] { return count_of("tcp_connect to ") == 3; }));
    EXPECT_TRUE(all_along([&] { return count_of("pthread_create msgrecver:") == 2; },
                          std::chrono::milliseconds(300)));
    EXPECT_LE(threads_named("sdk_msgrecver_main"), 1);
    late_sender.let_go();
    ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_THAT(link_events(login->seen), testing::ElementsAre(3, 1));
    EXPECT_EQ(log->count(pause_line), 1);
    EXPECT_FALSE(log->has(lost_line));
    EXPECT_TRUE(eventually([&] { return device->links_open() == 1; }));
    EXPECT_EQ(login->start_stream(), 0);
}

TEST_F(Workers, AreLookedAtTenTimesWithHalfASecondInBetween)
{
    late_sender_hold late_sender;
    {
        fault no_waiting("usleep", 0);
        no_waiting.on_descriptor(500000).returning(0);
        const int of_other_pauses = no_waiting.hits(); // struck before it was aimed
        drop(*device);
        ASSERT_TRUE(log->wait_for(failed_line));
        EXPECT_EQ(no_waiting.hits() - of_other_pauses, 10);
    }
    late_sender.let_go();
    EXPECT_TRUE(login->wait_until_up());
}

TEST_F(Workers, WhoseLinkIsLostBeforeTheyReportCostTheConnectionAtOnce)
{
    late_sender_hold late_sender;
    lost_link lost(*device);
    device->behave(closes_at_once());
    log->forget();
    lost.go_on();
    ASSERT_TRUE(eventually([&] { return count_of("tcp_connect to ") == 2; }));
    const story whole = {trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
                         trace("pthread_create msgrecver:0x* ok\n"),
                         trace("pthread_create msgsender:0x* ok\n"),
                         error(lost_line),
                         error(failed_line),
                         trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n")};
    EXPECT_TRUE(told_by(*log, manager_name, 2, whole));
    EXPECT_TRUE(log->has(7, "check_tcp_socket_status", gone_line));
    EXPECT_THAT(link_events(login->seen), testing::ElementsAre(3)); // of the link that was up
    device->behave({});
    late_sender.let_go();
    EXPECT_TRUE(login->wait_until_up());
}

TEST_F(Workers, ThatEndAfterTheSenderDoBringAReconnection)
{
    const held_user user(login->handle());
    loopback_socket requester;
    ASSERT_TRUE(requester.send_to(static_cast<unsigned short>(user->int_port.load()), {}));
    ASSERT_TRUE(log->wait_for("recvfrom ret: 0, break\n"));
    ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_THAT(link_events(login->seen), testing::ElementsAre(3, 1));
    EXPECT_TRUE(
        log->has(7, "sdk_msgrecver_main", "Receiver thread received shutdown signal. Exiting.\n"));
    EXPECT_FALSE(log->has(gone_line));
    EXPECT_EQ(login->start_stream(), 0);
}

TEST_F(Workers, ThatEndAfterTheReceiverDoBringAReconnection)
{
    // The sender stands before a wait until its pipe has been written to; otherwise its cleared run
    // word could end it without a line.
    std::atomic<bool> standing{false};
    const auto is_told = [&] { return log->has("@@@@@@ exit msgrecver()\n"); };
    const before_call held("ppoll", [&] {
        if (on_thread_named("sdk_msgsender_main") && !is_told()) {
            standing = true;
            eventually(is_told);
        }
    });
    ASSERT_TRUE(eventually([&] { return standing.load(); }));
    device->send_to_all(make_message(0x1100, 0x7FFFFFFF, 0, {}));
    ASSERT_TRUE(log->wait_for("msg too long, len: 2147483647\n"));
    ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    EXPECT_THAT(link_events(login->seen), testing::ElementsAre(3, 1));
    EXPECT_TRUE(
        log->has(7, "sdk_msgsender_main", "Sender thread received shutdown signal. Exiting.\n"));
    EXPECT_EQ(login->start_stream(), 0);
}

TEST_F(Workers, LeaveEmptyBlockingPipesBehindWhenTheyWereWoken)
{
    const held_user user(login->handle());
    drop(*device);
    ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    for (const int end : {user->shutdown_pipe_recver[0], user->shutdown_pipe_sender[0]}) {
        int waiting = -1;
        ASSERT_EQ(ioctl(end, FIONREAD, &waiting), 0);
        EXPECT_EQ(waiting, 0);
        EXPECT_EQ(fcntl(end, F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST_F(Workers, WhosePipeCannotBeDrainedEndOnceMore)
{
    const held_user user(login->handle());
    fault failing("fcntl", EIO, 1, 1);
    failing.on_descriptor(user->shutdown_pipe_recver[0]);
    drop(*device);
    ASSERT_TRUE(eventually([&] { return failing.hits() == 1; }));
    // The byte that was left ends the next receiver too, and with it that connection.
    EXPECT_TRUE(eventually([&] { return device->connections_made() >= 3; }));
    EXPECT_TRUE(has_link(*device));
}

TEST_F(Workers, OfOneLoginAreOneSenderAndOneReceiverAlsoAfterAReconnection)
{
    EXPECT_EQ(threads_named("sdk_msgsender_main"), 1);
    EXPECT_EQ(threads_named("sdk_msgrecver_main"), 1);
    EXPECT_EQ(threads_named(manager_name), 1);
    drop(*device);
    ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
    // The event handler bears the name of its starter while it lives.
    EXPECT_TRUE(eventually([] {
        return threads_named("sdk_msgrecver_main") == 1 &&
               threads_named("sdk_msgsender_main") == 1 && threads_named(manager_name) == 1;
    }));
}

TEST_F(Workers, OfWhichTheReceiverCannotBeCreatedEndTheDeviceManagerWithMinusOne)
{
    lost_link lost(*device);
    log->forget();
    fault f("pthread_create", EAGAIN);
    f.on_thread(manager_name);
    lost.go_on();
    const held_user user(login->handle());
    EXPECT_EQ(join_manager(user.get()), reinterpret_cast<void*>(-1));
    EXPECT_TRUE(told_by(*log, manager_name, 2,
                        {trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
                         error("pthread_create msgrecver fail!\n")}));
    EXPECT_TRUE(has_link(*device)); // both sockets are left open
    EXPECT_GT(user->ext_sock, 0);
    EXPECT_GT(user->int_sock, 0);
    EXPECT_EQ(login->log_out(), 0);
}

TEST_F(Workers, OfWhichTheSenderCannotBeCreatedLeaveTheReceiverRunning)
{
    lost_link lost(*device);
    log->forget();
    fault f("pthread_create", EAGAIN, 2);
    f.on_thread(manager_name);
    lost.go_on();
    const held_user user(login->handle());
    EXPECT_EQ(join_manager(user.get()), reinterpret_cast<void*>(-1));
    EXPECT_TRUE(told_by(*log, manager_name, 2,
                        {trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n"),
                         trace("pthread_create msgrecver:0x* ok\n"),
                         error("pthread_create msgsender fail!\n")}));
    EXPECT_TRUE(eventually([] { return threads_named("sdk_msgrecver_main") == 1; }));
    EXPECT_EQ(threads_named("sdk_msgsender_main"), 0);
    EXPECT_EQ(login->log_out(), 0);
}

TEST_F(Workers, AndSocketsAreLeftAloneWhenTheDeviceManagerIsToldToEnd)
{
    const held_user user(login->handle());
    user->devmanager_run = 0;
    EXPECT_EQ(join_manager(user.get()), nullptr);
    EXPECT_EQ(log->lines_of(manager_name).back().message, "&&&&&&&&&&&& exit from devmanager\n");
    EXPECT_FALSE(log->has("msgrecver or msgsender has exited!\n"));
    EXPECT_THAT(link_events(login->seen), testing::ElementsAre());
    EXPECT_EQ(user->used, ZU_SDK_USER_USED);
    EXPECT_EQ(device->links_open(), 1);
    EXPECT_EQ(ZU_NET_DEV_MakeKeyFrame(login->handle(), 11), 0); // both workers still work
    EXPECT_EQ(login->log_out(), 0);
}

TEST(DeviceManager, ThatIsToldToEndBeforeItBeginsDoesNotConnect)
{
    const library lib(0);
    const log_tap log(2);
    const int slot = alloc_sdkuser();
    zu_sdk_user* user = sdk_users[slot];
    sdk_user_hold(user);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, sdk_devmanager_main, user), 0);
    void* result = &thread;
    pthread_join(thread, &result);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(told_by(log, manager_name, 2,
                        {trace("enter sdk_devmanager_main pid: 0x*, num: 0\n"),
                         trace("&&&&&&&&&&&& exit from devmanager\n")}));
    free_sdkuser(static_cast<ZU_U32>(slot));
}

// ---- the gates of the lines of a failed start ----

class FailedStart : public at_level
{
};

TEST_P(FailedStart, IsToldAtTheErrorLevelsAndALostLinkAtEveryLevel)
{
    const library lib(0);
    serving_device device;
    const live_login login(device.port());
    ASSERT_EQ(login.result(), 0);
    log_tap log(2);
    late_sender_hold late_sender;
    drop(device);
    ASSERT_TRUE(late_sender.reached());
    ASSERT_TRUE(log.wait_for_beginning("pthread_create msgsender:"));
    ASSERT_TRUE(eventually([&] { return device.links_open() == 1; }));

    set_log_level(level);
    log.forget();
    drop(device);
    // The next connection is made at once and then waits for the former sender.
    ASSERT_TRUE(eventually([&] { return device.connections_made() == 3; }));
    ASSERT_TRUE(level < 2 || log.wait_for_beginning("tcp_connect to "));
    EXPECT_TRUE(told_by(log, manager_name, level,
                        {error(lost_line), error(failed_line),
                         trace("tcp_connect to 127.0.0.1:* ok, ext_sock: *\n")}));
    EXPECT_TRUE(
        told_by(log, "check_tcp_socket_status", level, {{log_at_every_level, 7, gone_line}}));
    late_sender.let_go();
    EXPECT_TRUE(login.wait_until_up());
}

INSTANTIATE_TEST_SUITE_P(Told, FailedStart, all_levels(), level_name);

TEST_F(Workers, InheritNothingOfTheManagersRoughPauses)
{
    const int own = prctl(PR_GET_TIMERSLACK);
    std::atomic<int> rough{0};
    std::atomic<int> inherited{0};
    {
        const auto is_rough = [own] { return prctl(PR_GET_TIMERSLACK) != own ? 1 : 0; };
        const before_call pauses("usleep", [&] { rough += is_rough(); });
        const before_call creations("pthread_create", [&] { inherited += is_rough(); });
        EXPECT_TRUE(eventually([&] { return rough > 0; })); // the link is up, and watched
        drop(*device);
        ASSERT_TRUE(login->seen.wait_for_event(ZU_NET_DEV_CONNECTED));
        EXPECT_GE(creations.count(), 4); // two workers, two events
        EXPECT_EQ(login->log_out(), 0);
    }
    EXPECT_EQ(inherited, 0);
}
