// Logout and callbacks: called from inside them, called while they run, and none that begins once
// it has returned. The device raises events by answering heartbeats that nobody has sent.
#include "event_handler.h"
#include "login_kit.h"

using namespace support;

namespace
{

bytes heartbeat_answer()
{
    return make_message(0x1022, 0, {});
}

// An event callback that does what the test wants, on the handler thread, for one kind of event.
// Others may come beside it: a Logout can raise the disconnected event.
struct event_action {
    ZU_U32 trigger = ZU_NET_DEV_HEARTBEAT;
    std::function<void(ZU_U32 handle)> act;
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};

    static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* self)
    {
        auto* action = static_cast<event_action*>(self);
        if (event == action->trigger) {
            action->begun++;
            action->act(handle);
            action->ended++;
        }
        return 0;
    }
    bool attach(ZU_U32 handle)
    {
        return ZU_NET_DEV_SetEventCallBack(handle, on_event, this) == 0;
    }
    bool has_begun(int times = 1) const
    {
        return eventually([&] { return begun >= times; });
    }
    bool has_ended(int times = 1) const
    {
        return eventually([&] { return ended >= times; });
    }
};

class LogoutAndCallbacks : public testing::Test
{
protected:
    LogoutAndCallbacks()
        : lib(std::make_unique<library>()), device(std::make_unique<serving_device>(silent())),
          other_device(std::make_unique<serving_device>(silent()))
    {
        EXPECT_EQ(log_in(&handle, device->port()), 0);
        EXPECT_TRUE(has_link(*device));
    }
    void TearDown() override
    {
        release.store(true);
        EXPECT_THAT(sdk_users, testing::Each(nullptr));
        device.reset();
        other_device.reset();
        lib.reset();
        EXPECT_EQ(before.left_over(), "");
    }
    void raise_event(serving_device& from) const
    {
        EXPECT_EQ(from.send_to_all(heartbeat_answer()), 1);
    }
    void wait_for_release()
    {
        eventually([this] { return release.load(); });
    }

    // Actions live as long as the fixture: after TearDown no thread is left that could use them.
    event_action& new_action(std::function<void(ZU_U32)> act)
    {
        event_action& action = actions.emplace_back();
        action.act = std::move(act);
        return action;
    }

    std::list<event_action> actions;
    const inventory before;
    std::unique_ptr<library> lib;
    std::unique_ptr<serving_device> device;
    std::unique_ptr<serving_device> other_device;
    ZU_U32 handle = 0;
    std::atomic<bool> release{false};
};

} // namespace

TEST_F(LogoutAndCallbacks, LogoutFromItsOwnEventCallbackSucceeds)
{
    std::atomic<int> result{-99};
    std::atomic<bool> gone{false};
    event_action& ends_itself = new_action([&](ZU_U32 own) {
        result = ZU_NET_DEV_Logout(own);
        // The one that still bears a name is this thread: it has it from the receiver.
        gone = login_threads_gone(1);
    });
    ASSERT_TRUE(ends_itself.attach(handle));
    raise_event(*device);
    ASSERT_TRUE(ends_itself.has_ended());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(gone);
}

TEST_F(LogoutAndCallbacks, LogoutFromTheDisconnectedEventSucceedsAndNothingReconnects)
{
    std::atomic<int> result{-99};
    event_action& ends_itself = new_action([&](ZU_U32 own) { result = ZU_NET_DEV_Logout(own); });
    ends_itself.trigger = ZU_NET_DEV_DISCONNECTED;
    ASSERT_TRUE(ends_itself.attach(handle));
    const before_call connects("connect");
    drop(*device);
    ASSERT_TRUE(ends_itself.has_ended());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(connects.count(), 0);
}

TEST_F(LogoutAndCallbacks, TwoLoginsCanEndEachOtherFromTheirEventCallbacks)
{
    ZU_U32 other = 0;
    ASSERT_EQ(log_in(&other, other_device->port()), 0);
    ASSERT_TRUE(has_link(*other_device));
    std::atomic<int> met{0};
    std::atomic<int> results[2] = {{-99}, {-99}};
    const auto meet = [&] {
        met++;
        eventually([&] { return met == 2; });
    };
    event_action& ends_other = new_action([&](ZU_U32) {
        meet();
        results[0] = ZU_NET_DEV_Logout(other);
    });
    event_action& ends_first = new_action([&](ZU_U32) {
        meet();
        results[1] = ZU_NET_DEV_Logout(handle);
    });
    ASSERT_TRUE(ends_other.attach(handle));
    ASSERT_TRUE(ends_first.attach(other));
    raise_event(*device);
    raise_event(*other_device);
    EXPECT_TRUE(ends_other.has_ended());
    EXPECT_TRUE(ends_first.has_ended());
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
}

TEST_F(LogoutAndCallbacks, LogoutFromAnEventCallbackDoesNotWaitForAnotherOfTheSameLogin)
{
    std::atomic<int> turn{0};
    std::atomic<int> result{-99};
    event_action& action = new_action([&](ZU_U32 own) {
        if (++turn == 1) {
            wait_for_release();
        } else {
            result = ZU_NET_DEV_Logout(own);
        }
    });
    ASSERT_TRUE(action.attach(handle));
    raise_event(*device);
    ASSERT_TRUE(action.has_begun());
    raise_event(*device);
    ASSERT_TRUE(action.has_ended());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(action.begun, 2);
    EXPECT_EQ(action.ended, 1); // the first one still runs
    release = true;
    EXPECT_TRUE(action.has_ended(2));
}

TEST_F(LogoutAndCallbacks, LogoutWaitsForAnEventCallbackThatRunsForTwoSeconds)
{
    event_action& slow = new_action([](ZU_U32) { go_on_for(std::chrono::seconds(2)); });
    ASSERT_TRUE(slow.attach(handle));
    raise_event(*device);
    ASSERT_TRUE(slow.has_begun());
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    EXPECT_EQ(slow.ended, 1);
}

TEST_F(LogoutAndCallbacks, LogoutGivesUpOnAnEventCallbackThatWaitsForALockOfItsCaller)
{
    std::mutex lock_of_caller;
    std::atomic<bool> got_it{false};
    event_action& blocked = new_action([&](ZU_U32) {
        const std::lock_guard<std::mutex> lock(lock_of_caller);
        got_it = true;
    });
    ASSERT_TRUE(blocked.attach(handle));
    {
        const std::lock_guard<std::mutex> lock(lock_of_caller);
        raise_event(*device);
        ASSERT_TRUE(blocked.has_begun());
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        EXPECT_FALSE(got_it);
        EXPECT_EQ(sdk_users[handle & 0xffff], nullptr); // released, though the record is still held
    }
    EXPECT_TRUE(blocked.has_ended());
    EXPECT_TRUE(got_it);
}

TEST_F(LogoutAndCallbacks, AnEventCallbackMayOutliveItsLoginAndTheNextInit)
{
    event_action& slow = new_action([&](ZU_U32) { wait_for_release(); });
    ASSERT_TRUE(slow.attach(handle));
    raise_event(*device);
    ASSERT_TRUE(slow.has_begun());
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
    EXPECT_EQ(ZU_NET_DEV_Init(), 0);
    const live_login next(device->port());
    EXPECT_EQ(next.result(), 0);
    release = true;
    EXPECT_TRUE(slow.has_ended());
}

TEST_F(LogoutAndCallbacks, LogoutWaitsForTheStreamCallbackHoweverLongItRuns)
{
    struct held {
        const std::atomic<bool>& release;
        std::atomic<bool> begun{false};
        std::atomic<bool> ended{false};
    } stream = {release, {}, {}};
    const auto callback = [](ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID* self) -> ZU_S32 {
        auto* h = static_cast<held*>(self);
        h->begun = true;
        eventually([&] { return h->release.load(); });
        h->ended = true;
        return 0;
    };
    ASSERT_EQ(ZU_NET_DEV_SetStreamCallBack(handle, callback, &stream), 0);
    device->send_to_all(stream_data("KTVF", pattern(100)));
    ASSERT_TRUE(eventually([&] { return stream.begun.load(); }));
    running_call logout([&] { return ZU_NET_DEV_Logout(handle); });
    EXPECT_TRUE(all_along([&] { return !logout.returned(); }, std::chrono::seconds(6)));
    release = true;
    EXPECT_EQ(logout.result(), 0);
    EXPECT_TRUE(stream.ended);
}

TEST_F(LogoutAndCallbacks, NoCallbackBeginsOnceLogoutHasReturned)
{
    struct counter {
        std::atomic<bool> over{false};
        std::atomic<int> in_time{0};
        std::atomic<int> too_late{0};

        static void note(ZU_VOID* self)
        {
            auto* c = static_cast<counter*>(self);
            (c->over ? c->too_late : c->in_time)++;
        }
    };
    const auto on_stream = [](ZU_U32, ZU_U32, ZU_U8*, ZU_U32, ZU_VOID* self) -> ZU_S32 {
        counter::note(self);
        return 0;
    };
    const auto on_event = [](ZU_U32, ZU_U32, ZU_VOID* self) -> ZU_S32 {
        counter::note(self);
        return 0;
    };
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    ASSERT_TRUE(eventually([&] { return device->links_open() == 0; }));
    const int threads = thread_count();

    std::atomic<bool> stop{false};
    std::thread flood([&] {
        const bytes both = heartbeat_answer() + stream_data("KTVF", pattern(200));
        while (!stop) {
            device->send_to_all(both);
        }
    });
    std::list<counter> counters; // they stay until the end: a late callback must find its own
    for (int round = 0; round < 8; round++) {
        ASSERT_EQ(log_in(&handle, device->port()), 0);
        counter& c = counters.emplace_back();
        ASSERT_EQ(ZU_NET_DEV_SetStreamCallBack(handle, on_stream, &c), 0);
        ASSERT_EQ(ZU_NET_DEV_SetEventCallBack(handle, on_event, &c), 0);
        ASSERT_TRUE(eventually([&] { return c.in_time > 20; }));
        EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
        c.over = true;
    }
    stop = true;
    flood.join();
    EXPECT_TRUE(eventually([&] { return thread_count() <= threads; })); // no handler is on its way
    for (const counter& c : counters) {
        EXPECT_EQ(c.too_late, 0);
    }
}

TEST_F(LogoutAndCallbacks, AnEventHandlerThatHasNotBegunByThenEndsWithoutCalling)
{
    EXPECT_EQ(ZU_NET_DEV_Logout(handle), 0);
    const int slot = alloc_sdkuser();
    zu_sdk_user* user = sdk_users[slot];
    event_action& never = new_action([](ZU_U32) {});
    user->event_userdata = &never;
    user->event_callback = event_action::on_event;
    event_handler_finish(user);
    ASSERT_TRUE(event_handler_start(user, ZU_NET_DEV_HEARTBEAT));
    EXPECT_TRUE(eventually([&] { return user->holders == 1; })); // the slot's own
    EXPECT_EQ(never.begun, 0);
    free_sdkuser(static_cast<ZU_U32>(slot));
}
