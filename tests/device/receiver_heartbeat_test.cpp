// Heartbeat answers: each becomes one heartbeat event, on an event handler thread of its own.
//
// The test thread plays the device. Event callbacks run on several threads at once, so everything
// they write to is atomic or locked.
#include <cerrno>
#include <mutex>

#include "event_handler.h"
#include "receiver_kit.h"

using namespace support;

namespace
{

constexpr ZU_U32 heartbeat_event = 4;

told no_callback_line(const receiver_stand& stand)
{
    return error("event_callback is NULL for " + handle_text(stand) + " on HEARTBEAT!\n");
}

told not_used_line(const receiver_stand& stand, int state)
{
    return support::not_used_line(stand, state, "HEARTBEAT event_callback");
}

const told heartbeat_line = trace("recv msg ZU_SDK_MSG_RES_HEARTBEAT\n");
const told empty_line = trace("msglen: 0, msgtype: 0x1022\n");

// What an event callback sees of its calls; each waits in a turnstile.
struct event_calls {
    turnstile gate;
    std::atomic<ZU_U32> handle{0};
    std::atomic<ZU_U32> event{0};
    std::atomic<pthread_t> thread{};
    std::atomic<int> over{0};

    static ZU_S32 on_event(ZU_U32 handle, ZU_U32 event, ZU_VOID* self)
    {
        auto* calls = static_cast<event_calls*>(self);
        calls->handle = handle;
        calls->event = event;
        calls->thread = pthread_self();
        calls->gate.pass();
        calls->over++;
        return 0;
    }
    void attach(zu_sdk_user* user)
    {
        user->event_userdata = this;
        user->event_callback = on_event;
    }
    bool wait_for(int count) const
    {
        return eventually([&] { return over == count; });
    }
};

// Runs one event handler as its starters do, without them.
void run_event_handler(zu_sdk_user* user)
{
    sdk_user_hold(user);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, sdk_eventhandler_main, user), 0);
}

} // namespace

TEST(ReceiverHeartbeat, MakesAnEventOfAnAnswerWithoutABody)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.link.send(hex("22 10 00 00  00 00 00 00  00 00 00 00"));
        EXPECT_TRUE(stand.seen.wait_for_event(heartbeat_event));
        expect_log_until_shut_down(stand, {empty_line, heartbeat_line});
        EXPECT_EQ(stand.seen.events(), (std::vector<ZU_U32>{heartbeat_event}));
        EXPECT_EQ(stand.user->event, 4);
    }
}

TEST(ReceiverHeartbeat, MakesAnEventOfAnAnswerWithABody)
{
    receiver_stand stand(2);
    stand.link.send(make_message(0x1022, 0, pattern(100)));
    EXPECT_TRUE(stand.seen.wait_for_event(heartbeat_event));
    expect_log_until_shut_down(stand, {heartbeat_line});
}

TEST(ReceiverHeartbeat, MakesOneEventOfEachAnswer)
{
    receiver_stand stand;
    for (int i = 0; i < 50; i++) {
        stand.link.send(heartbeat_answer());
    }
    EXPECT_TRUE(stand.seen.wait_for_event(heartbeat_event, 50));
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_EQ(stand.seen.events().size(), 50U);
}

TEST(ReceiverHeartbeat, HandsOverHandleCodeAndUserPointerOnAThreadOfItsOwn)
{
    event_calls calls;
    receiver_stand stand;
    calls.attach(stand.user);
    stand.link.send(heartbeat_answer());
    ASSERT_TRUE(calls.gate.reached());
    EXPECT_EQ(calls.handle, stand.handle());
    EXPECT_EQ(calls.event, heartbeat_event);
    EXPECT_FALSE(pthread_equal(calls.thread, stand.user->msgrecver));
    EXPECT_TRUE(eventually([&] { return stand.user->eventhandler == calls.thread; }));
    calls.gate.let_go();
    EXPECT_TRUE(calls.wait_for(1));
}

TEST(ReceiverHeartbeat, EventCallbacksOverlapOneAnotherAndTheStreamCallback)
{
    event_calls calls;
    held_watcher held;
    receiver_stand stand;
    calls.attach(stand.user);
    held.attach(stand.user);
    stand.link.send(heartbeat_answer() + heartbeat_answer() + stream_data("KTVF", {}));
    EXPECT_TRUE(calls.gate.reached(2)); // both are inside, and neither has returned
    EXPECT_TRUE(held.gate.reached());
    EXPECT_EQ(calls.over, 0);
    held.gate.let_go();
    calls.gate.let_go();
    EXPECT_TRUE(calls.wait_for(2));
}

TEST(ReceiverHeartbeat, ACallbackThatWaitsDoesNotHoldUpTheReceiver)
{
    event_calls calls;
    receiver_stand stand;
    calls.attach(stand.user);
    stand.link.send(heartbeat_answer());
    ASSERT_TRUE(calls.gate.reached());
    EXPECT_TRUE(takes_a_frame(stand));
    calls.gate.let_go();
    EXPECT_TRUE(calls.wait_for(1));
}

TEST(ReceiverHeartbeat, DropsTheEventWithALineWhenThereIsNoCallback)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->event_callback = nullptr;
        stand.link.send(heartbeat_answer());
        EXPECT_TRUE(takes_a_frame(stand));
        expect_log_until_shut_down(stand, {empty_line, heartbeat_line, no_callback_line(stand)});
    }
}

TEST(ReceiverHeartbeat, DropsTheEventWithALineWhenTheUserIsNotInUse)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->used = -1;
        stand.link.send(heartbeat_answer() + make_message(0x1100, -1, 0, {}));
        ASSERT_TRUE(all_read(stand));
        expect_log_until_shut_down(stand, {empty_line, heartbeat_line, not_used_line(stand, -1),
                                           trace("msglen: -1, msgtype: 0x1100\n"),
                                           error("msg too long, len: -1\n")});
        EXPECT_TRUE(stand.seen.events().empty());
    }
}

TEST(ReceiverHeartbeat, WritesBothLinesWithoutCallbackAndUser)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        stand.user->event_callback = nullptr;
        stand.user->used = 0;
        stand.link.send(heartbeat_answer() + make_message(0x1100, -1, 0, {}));
        ASSERT_TRUE(all_read(stand));
        expect_log_until_shut_down(
            stand, {empty_line, heartbeat_line, no_callback_line(stand), not_used_line(stand, 0),
                    trace("msglen: -1, msgtype: 0x1100\n"), error("msg too long, len: -1\n")});
    }
}

TEST(ReceiverHeartbeat, GoesOnWhenTheHandlerThreadCannotBeCreated)
{
    for (const int level : log_levels) {
        receiver_stand stand(level);
        const int holders = stand.user->holders;
        {
            const fault none("pthread_create", EAGAIN);
            stand.link.send(heartbeat_answer());
            EXPECT_TRUE(takes_a_frame(stand));
            EXPECT_EQ(none.hits(), 1);
        }
        EXPECT_EQ(stand.user->holders, holders);
        EXPECT_TRUE(stand.seen.events().empty());
        stand.link.send(heartbeat_answer());
        EXPECT_TRUE(stand.seen.wait_for_event(heartbeat_event));
        expect_log_until_shut_down(stand,
                                   {empty_line, heartbeat_line,
                                    error("pthread_create eventhandler( connected ) fail!\n"),
                                    empty_line, heartbeat_line});
    }
}

// ---- the event handler ----

TEST(EventHandler, ReportsTheCodeThatStandsInTheRecordWhenItRuns)
{
    receiver_stand stand;
    stand.user->event = 2;
    run_event_handler(stand.user);
    EXPECT_TRUE(eventually([&] { return stand.seen.events().size() == 1; }));
    EXPECT_EQ(stand.seen.events(), (std::vector<ZU_U32>{2}));
}

TEST(EventHandler, HoldsItsRecordUntilItsCallbackHasReturned)
{
    event_calls calls;
    receiver_stand stand;
    calls.attach(stand.user);
    const int holders = stand.user->holders;
    stand.link.send(heartbeat_answer());
    ASSERT_TRUE(calls.gate.reached());
    EXPECT_EQ(stand.user->holders, holders + 1);
    EXPECT_EQ(stand.user->callbacks_running, 1);
    calls.gate.let_go();
    EXPECT_TRUE(eventually([&] { return stand.user->holders == holders; }));
    EXPECT_EQ(stand.user->callbacks_running, 0);
}

TEST(EventHandler, CallsNothingOnceTheEventsOfItsLoginAreOver)
{
    receiver_stand stand;
    const int holders = stand.user->holders;
    event_handler_finish(stand.user);
    run_event_handler(stand.user);
    stand.link.send(heartbeat_answer());
    EXPECT_TRUE(takes_a_frame(stand));
    EXPECT_TRUE(eventually([&] { return stand.user->holders == holders; }));
    EXPECT_TRUE(stand.seen.events().empty());
}
