// The moments at which a Logout, its rivals, the device manager and late threads can meet, by name.
//
// On the simulated machine a moment is a line of the log or a call of the system: the thread that
// comes there is held for as long as a test says, while everybody else goes on.
#include "live_machine.h"

using namespace torture;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace
{

class Interleaving : public live_machine
{
};

} // namespace

// ---- Logout at a moment ------------------------------------------------------------------------

TEST_F(Interleaving, LogoutWhileTheFirstConnectionIsMade)
{
    here.answer(port, answer_to_connect::silence);
    long login = 0;
    const pthread_t beside = here.start([&] { login = log_in(); });
    here.let_pass(500 * milliseconds);
    EXPECT_EQ(ZU_NET_DEV_Logout(0x43210000), 0);
    over = true;
    here.join(beside);
    EXPECT_EQ(login, -1);
}

TEST_F(Interleaving, LogoutWhileAReconnectionIsMade)
{
    lose_link_and_wait_for("All worker threads exited");
    here.answer(port, answer_to_connect::silence);
    here.let_pass(3500 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(Interleaving, LogoutDuringTheStartUpWait)
{
    ASSERT_EQ(log_in(), 0);
    hold_at("enter sdk_msgsender_main", 2 * seconds);
    device.drop_links();
    ASSERT_TRUE(here.wait([&] { return device.links_made() == 2; }, 10 * seconds));
    here.let_pass(600 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(Interleaving, LogoutJustBeforeTheLinkIsUp)
{
    lose_link_and_wait_for("All worker threads exited");
    hold_at("both started!", 1 * seconds);
    lines.clear();
    ASSERT_TRUE(here.wait([&] { return told("both started!"); }, 10 * seconds));
    EXPECT_EQ(log_out(), 0);
}

TEST_F(Interleaving, LogoutDuringTheTearDown)
{
    hold_at("@@@@@ exit msgserder()", 1 * seconds);
    lose_link_and_wait_for("@@@@@ exit msgserder()");
    EXPECT_EQ(log_out(), 0);
}

TEST_F(Interleaving, LogoutDuringThePauseBeforeAReconnection)
{
    lose_link_and_wait_for("Waiting for 3 seconds");
    here.let_pass(1 * seconds);
    EXPECT_EQ(log_out(), 0);
    EXPECT_THAT(events, ElementsAre(ZU_NET_DEV_DISCONNECTED));
}

TEST_F(Interleaving, LogoutDuringTheRestartOfAStreamThatIsNeverAnswered)
{
    lose_link_and_wait_for("All worker threads exited");
    device.set_silent(true);
    lines.clear();
    ASSERT_TRUE(here.wait([&] { return told("enter in_startstream"); }, 10 * seconds));
    here.let_pass(5 * seconds); // into the second attempt
    EXPECT_EQ(log_out(), 0);
}

// The Logout has looked at the sockets while there were none; then a link comes up whose device
// sends half a header and nothing more for a while, which keeps its receiver busy and deaf; only
// then does the Logout go on.
TEST_F(Interleaving, LogoutThatMissesALinkComingUpWithHalfAHeader)
{
    device.greet_with(half_header);
    ASSERT_EQ(log_in(), 0);
    lose_link();
    hold_at("####### exit devmanager()\n", 4 * seconds);
    EXPECT_EQ(log_out(), 0);
    EXPECT_EQ(device.links_made(), 2);
}

// The same with the device manager in the teardown of that link, waiting for that receiver, when
// the Logout goes on.
TEST_F(Interleaving, LogoutThatMeetsTheTearDownOfALinkWithHalfAHeader)
{
    device.greet_with(half_header);
    ASSERT_EQ(log_in(), 0);
    lose_link();
    hold_at("####### exit devmanager()\n", 4 * seconds);
    here.at(here.now() + 3500 * milliseconds, [this] { end_senders(); });
    EXPECT_EQ(log_out(), 0);
    EXPECT_EQ(device.links_made(), 2);
}

// ---- late threads ------------------------------------------------------------------------------

TEST_F(Interleaving, LateWorkersCostTheConnectionAndTheNextComesWithoutAnEvent)
{
    ASSERT_EQ(log_in(), 0);
    const unsigned so_far = 5; // application, device manager, receiver, sender, event handler
    here.threads.set_start_delay(
        [&](unsigned number) { return number == so_far ? 8 * seconds : 0; });
    device.drop_links();
    ASSERT_TRUE(here.wait([&] { return device.links_made() == 3; }, 30 * seconds));
    ASSERT_TRUE(here.wait([&] { return events.size() == 2; }, 30 * seconds));
    EXPECT_THAT(events, ElementsAre(ZU_NET_DEV_DISCONNECTED, ZU_NET_DEV_CONNECTED));
    EXPECT_EQ(log_out(), 0);
}

TEST_F(Interleaving, LateWorkersOfALoginAreWaitedForByItsFailure)
{
    here.threads.set_start_delay([](unsigned number) { return number == 3 ? 10 * seconds : 0; });
    EXPECT_EQ(log_in(), -1);
    EXPECT_GE(here.now(), 10 * seconds);
}

TEST_F(Interleaving, ALateEventHandlerEndsWithoutCallingAfterALogout)
{
    here.threads.set_start_delay([](unsigned number) { return number == 4 ? 30 * seconds : 0; });
    lose_link_and_wait_for("call event_callback disconnected");
    EXPECT_EQ(log_out(), 0);
    EXPECT_LT(here.now(), 20 * seconds);
    here.let_pass(60 * seconds);
    EXPECT_TRUE(events.empty());
}

TEST_F(Interleaving, LogoutWaitsForAnEventCallbackThatRuns)
{
    bool returned = false;
    in_event = [&] {
        here.let_pass(3 * seconds);
        returned = true;
    };
    lose_link_and_wait_for("Waiting for 3 seconds");
    EXPECT_EQ(log_out(), 0);
    EXPECT_TRUE(returned);
}

TEST_F(Interleaving, LogoutWaitsNoLongerThanFiveSecondsForAnEventCallback)
{
    in_event = [&] { here.let_pass(60 * seconds); };
    lose_link_and_wait_for("Waiting for 3 seconds");
    const micros begun = here.now();
    EXPECT_EQ(log_out(), 0);
    EXPECT_GE(here.now() - begun, 5 * seconds);
    EXPECT_LT(here.now() - begun, 9 * seconds);
    here.let_pass(60 * seconds);
}

TEST_F(Interleaving, ALogoutInAnEventCallbackDoesNotWaitForIt)
{
    long result = 77;
    micros took = 0;
    in_event = [&] {
        const micros begun = here.now();
        result = log_out();
        took = here.now() - begun;
    };
    ASSERT_EQ(log_in(), 0);
    device.drop_links();
    EXPECT_TRUE(here.wait([&] { return result != 77; }, 20 * seconds));
    EXPECT_EQ(result, 0);
    EXPECT_LT(took, 4 * seconds); // the pause before the reconnection, no five seconds on top
}

// ---- a slow log callback -----------------------------------------------------------------------

TEST_F(Interleaving, ALogCallbackThatIsSlowAtEveryLineOnlySlowsThingsDown)
{
    hold_at("", 100 * milliseconds, 1 << 20);
    ASSERT_EQ(log_in(), 0);
    ZU_S_STREAM_INFO_EXT stream = {0, 2, 0, 1};
    EXPECT_EQ(ZU_NET_DEV_StartStreamExt(handle, &stream), 0);
    device.drop_links();
    EXPECT_TRUE(here.wait([&] { return events.size() >= 2; }, 60 * seconds));
    EXPECT_EQ(log_out(), 0);
    EXPECT_GT(frames, 0U);
}

// ---- rivals ------------------------------------------------------------------------------------

TEST_F(Interleaving, OfTwoLogoutsOneSucceeds)
{
    ASSERT_EQ(log_in(), 0);
    EXPECT_THAT(rivals(2), UnorderedElementsAre(0, -1));
}

TEST_F(Interleaving, OfEightLogoutsOneSucceeds)
{
    here.threads.set_restlessness(3);
    lose_link_and_wait_for("Waiting for 3 seconds");
    EXPECT_THAT(rivals(8), UnorderedElementsAre(0, -1, -1, -1, -1, -1, -1, -1));
}

// Each request gets its answer or -1; what it uses stays until it has returned.
TEST_F(Interleaving, ALogoutAndEightThreadsWithRequests)
{
    ASSERT_EQ(log_in(), 0);
    start_stream();
    here.threads.set_restlessness(5);
    int answered = 0;
    int failed = 0;
    std::vector<pthread_t> threads;
    for (int i = 0; i < 8; i++) {
        threads.push_back(here.start([&, i] {
            for (int round = 0; round < 20; round++) {
                const ZU_S32 result = ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, i);
                ASSERT_TRUE(result == 0 || result == -1);
                (result == 0 ? answered : failed)++;
                here.let_pass(1 * milliseconds);
            }
        }));
    }
    here.let_pass(20 * milliseconds);
    EXPECT_EQ(log_out(), 0);
    for (const pthread_t thread : threads) {
        here.join(thread);
    }
    EXPECT_GT(answered, 0);
    EXPECT_GT(failed, 0);
    EXPECT_EQ(answered + failed, 160);
}

TEST_F(Interleaving, DeInitAndInitAfterTheLastLogoutBringTheLibraryBack)
{
    for (int round = 0; round < 5; round++) {
        ASSERT_EQ(log_in(), 0);
        start_stream();
        EXPECT_EQ(log_out(), 0);
        EXPECT_EQ(ZU_NET_DEV_DeInit(), 0);
        EXPECT_EQ(ZU_NET_DEV_Init(), 0);
        over = false;
    }
}
