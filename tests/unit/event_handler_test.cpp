// The event handler: one thread for each event.
//
// A record of the table stands for the login. The callbacks run on handler threads and write to a
// `doorman` under its lock; it can keep them waiting inside the callback until the test lets go.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "event_handler.h"
#include "eventually.h"
#include "process_probe.h"
#include "seam.h"
#include "table_user.h"

using namespace support;
using testing::ElementsAre;

namespace
{

struct call {
    ZU_U32 handle;
    ZU_U32 event;
    pthread_t thread;
};

class doorman
{
public:
    static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* self)
    {
        static_cast<doorman*>(self)->let_in({handle, event, pthread_self()});
        return -1; // ignored
    }

    void keep_waiting()
    {
        const std::lock_guard<std::mutex> lock(guard);
        open = false;
    }
    void let_go()
    {
        const std::lock_guard<std::mutex> lock(guard);
        open = true;
        opened.notify_all();
    }
    void meanwhile(std::function<void()> inside)
    {
        const std::lock_guard<std::mutex> lock(guard);
        within = std::move(inside);
    }
    std::vector<call> calls() const
    {
        const std::lock_guard<std::mutex> lock(guard);
        return seen;
    }
    std::vector<ZU_U32> events() const
    {
        std::vector<ZU_U32> out;
        for (const auto& one : calls()) {
            out.push_back(one.event);
        }
        return out;
    }
    bool wait_for_calls(size_t count) const
    {
        return eventually([&] { return calls().size() >= count; });
    }

private:
    void let_in(const call& one)
    {
        std::function<void()> inside;
        {
            std::unique_lock<std::mutex> lock(guard);
            seen.push_back(one);
            inside = within;
            opened.wait(lock, [this] { return open; });
        }
        if (inside) {
            inside();
        }
    }

    mutable std::mutex guard; // everything below
    std::condition_variable opened;
    std::function<void()> within;
    std::vector<call> seen;
    bool open = true;
};

class EventHandler : public testing::Test
{
protected:
    EventHandler() : user(new_login(door))
    {
    }
    ~EventHandler() override
    {
        door.let_go();
        ZU_NET_DEV_DeInit();
        EXPECT_EQ(before.left_over(), "");
    }

    // A record whose event callback is the doorman's, held by the test.
    static zu_sdk_user* new_login(doorman& door)
    {
        ZU_NET_DEV_Init();
        const int slot = alloc_sdkuser();
        zu_sdk_user* const made = get_sdkuser(static_cast<ZU_U32>(slot));
        made->handle = sdk_user_handle_base + static_cast<ZU_U32>(slot);
        made->event_userdata = &door;
        made->event_callback = doorman::on_event;
        free_sdkuser(static_cast<ZU_U32>(slot));
        return made;
    }
    static bool idle(const zu_sdk_user* login)
    {
        return eventually([login] { return login->holders == 1; });
    }
    // The last act of most tests: the handlers have ended, and the record goes with the test's
    // hold.
    void drop()
    {
        EXPECT_TRUE(idle(user));
        sdk_user_drop(user);
    }

    const inventory before;
    doorman door;
    zu_sdk_user* const user;
};

} // namespace

// ---- delivery ----------------------------------------------------------------------------------

TEST_F(EventHandler, CallsOnceWithHandleEventAndUserPointer)
{
    user->handle = 0x43210007;

    EXPECT_TRUE(event_handler_start(user, ZU_NET_DEV_HEARTBEAT));

    EXPECT_TRUE(idle(user)); // the handler has ended
    const auto calls = door.calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].handle, 0x43210007U);
    EXPECT_EQ(calls[0].event, 4U);
    drop();
}

TEST_F(EventHandler, RunsOnAThreadOfItsOwnWhoseIdTheRecordKeeps)
{
    event_handler_start(user, ZU_NET_DEV_CONNECTED);

    ASSERT_TRUE(door.wait_for_calls(1));
    EXPECT_FALSE(pthread_equal(door.calls()[0].thread, pthread_self()));
    EXPECT_TRUE(pthread_equal(door.calls()[0].thread, user->eventhandler));
    drop();
}

TEST_F(EventHandler, DeliversTheEventItFindsWhenItRuns)
{
    const before_call replaced("pthread_create", [this] { user->event = ZU_NET_DEV_DISCONNECTED; });

    event_handler_start(user, ZU_NET_DEV_CONNECTED);

    ASSERT_TRUE(door.wait_for_calls(1));
    EXPECT_THAT(door.events(), ElementsAre(3U));
    drop();
}

TEST_F(EventHandler, MayOverlapWithAnother)
{
    door.keep_waiting();

    event_handler_start(user, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(door.wait_for_calls(1));
    event_handler_start(user, ZU_NET_DEV_DISCONNECTED);
    ASSERT_TRUE(door.wait_for_calls(2));

    EXPECT_EQ(user->callbacks_running, 2);
    EXPECT_THAT(door.events(), ElementsAre(1U, 3U));
    door.let_go();
    drop();
}

TEST_F(EventHandler, LosesTheEventWhenItsThreadCanNotBeCreated)
{
    const fault no_thread("pthread_create", EAGAIN);

    EXPECT_FALSE(event_handler_start(user, ZU_NET_DEV_CONNECTED));

    EXPECT_EQ(user->holders, 1); // no hold is left behind
    EXPECT_EQ(user->event, 1);
    EXPECT_TRUE(door.calls().empty());
    drop();
}

TEST_F(EventHandler, KeepsItsRecordAliveUntilItsCallbackHasReturned)
{
    const before_call freed("munmap");
    door.keep_waiting();
    event_handler_start(user, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(door.wait_for_calls(1));

    sdk_user_drop(user);
    EXPECT_EQ(freed.count(), 0);
    door.let_go();

    EXPECT_TRUE(eventually([&] { return freed.count() == 1; }));
}

TEST_F(EventHandler, MayOutliveTheLibrary)
{
    const before_call freed("munmap");
    door.keep_waiting();
    event_handler_start(user, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(door.wait_for_calls(1));

    sdk_user_drop(user);
    ZU_NET_DEV_DeInit();
    door.let_go();

    EXPECT_TRUE(eventually([&] { return freed.count() == 1; }));
}

// ---- the end of a login's events ---------------------------------------------------------------

TEST_F(EventHandler, CallsNothingOnceTheLoginsEventsAreOver)
{
    event_handler_finish(user);

    EXPECT_TRUE(event_handler_start(user, ZU_NET_DEV_CONNECTED));

    EXPECT_TRUE(idle(user)); // it has run and given its hold back
    EXPECT_TRUE(door.calls().empty());
    EXPECT_EQ(user->callbacks_running, 0);
    drop();
}

TEST_F(EventHandler, FinishDoesNotWaitWhenNothingRuns)
{
    const before_call pauses("usleep");
    event_handler_finish(user);
    EXPECT_EQ(pauses.count(), 0);
    drop();
}

TEST_F(EventHandler, FinishWaitsForACallbackThatRuns)
{
    door.keep_waiting();
    event_handler_start(user, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(door.wait_for_calls(1));
    int pauses = 0;
    const before_call pausing("usleep", [&] {
        if (++pauses == 3) {
            door.let_go();
        }
    });

    event_handler_finish(user);

    EXPECT_GE(pauses, 3);
    EXPECT_EQ(user->callbacks_running, 0);
    drop();
}

TEST_F(EventHandler, FinishGivesUpACallbackAfterFiveSeconds)
{
    door.keep_waiting();
    event_handler_start(user, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(door.wait_for_calls(1));
    const auto start = std::chrono::steady_clock::now();

    event_handler_finish(user);

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
    EXPECT_EQ(user->callbacks_running, 1);
    door.let_go();
    drop();
}

TEST_F(EventHandler, FinishFromACallbackDoesNotWait)
{
    const before_call pauses("usleep");
    door.meanwhile([this] { event_handler_finish(user); });

    event_handler_start(user, ZU_NET_DEV_CONNECTED);

    EXPECT_TRUE(idle(user));
    EXPECT_EQ(door.calls().size(), 1U);
    EXPECT_EQ(pauses.count(), 0);
    drop();
}

TEST_F(EventHandler, FinishFromACallbackOfAnotherLoginDoesNotWaitEither)
{
    doorman other_door;
    zu_sdk_user* const other = new_login(other_door);
    other_door.keep_waiting();
    event_handler_start(other, ZU_NET_DEV_CONNECTED);
    ASSERT_TRUE(other_door.wait_for_calls(1));
    const before_call pauses("usleep");

    door.meanwhile([other] { event_handler_finish(other); });
    event_handler_start(user, ZU_NET_DEV_CONNECTED);

    EXPECT_TRUE(idle(user));
    EXPECT_EQ(other->callbacks_running, 1);
    EXPECT_EQ(pauses.count(), 0);
    other_door.let_go();
    EXPECT_TRUE(idle(other));
    sdk_user_drop(other);
    drop();
}
