// What a step of the wall clock does. The library reckons in whole seconds of it, so a step is
// felt; what it comes to is measured here.
#include "live_machine.h"

using namespace torture;

namespace
{

constexpr micros hour = 3600 * seconds;
constexpr uint32_t heartbeat = 0x1021;

class ClockStep : public live_machine
{
protected:
    ClockStep()
    {
        here.threads.set_limit(3 * hour);
    }

    // How long a request takes that is never answered, with a step of the clock a second after it
    // has begun.
    micros unanswered_request(micros step)
    {
        device.set_silent(true);
        here.at(here.now() + 1 * seconds, [this, step] { here.clock_step += step; });
        const micros begun = here.now();
        EXPECT_EQ(ZU_NET_DEV_PTZ_Ctrl_Standard(handle, 1, 1), -1);
        return here.now() - begun;
    }
};

} // namespace

TEST_F(ClockStep, OfNothingLeavesARequestItsThreeToFourSeconds)
{
    ASSERT_EQ(log_in(), 0);
    const micros took = unanswered_request(0);
    EXPECT_GE(took, 3 * seconds);
    EXPECT_LE(took, 4100 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(ClockStep, ForwardEndsARequestAtOnce)
{
    ASSERT_EQ(log_in(), 0);
    EXPECT_LE(unanswered_request(hour), 1100 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(ClockStep, BackwardMakesARequestWaitThatMuchLonger)
{
    ASSERT_EQ(log_in(), 0);
    const micros took = unanswered_request(-hour);
    EXPECT_GE(took, hour + 3 * seconds);
    EXPECT_LE(took, hour + 4100 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(ClockStep, ForwardCostsAStreamNothingAndSendsAHeartbeatEarly)
{
    ASSERT_EQ(log_in(), 0);
    start_stream();
    const int before = device.requests(heartbeat);
    here.clock_step += hour;
    here.let_pass(1 * seconds);
    EXPECT_EQ(device.requests(heartbeat), before + 1);
    EXPECT_EQ(device.links_made(), 1);
    EXPECT_TRUE(events.empty() || events.back() == ZU_NET_DEV_HEARTBEAT);
    EXPECT_EQ(log_out(), 0);
}

// For as long as the clock is behind what it has been, no heartbeat goes out and six silent seconds
// are not noticed; keep-alive probes still tell of a device that is gone.
TEST_F(ClockStep, BackwardStopsHeartbeatsForThatLong)
{
    ASSERT_EQ(log_in(), 0);
    here.let_pass(10 * seconds);
    const int before = device.requests(heartbeat);
    EXPECT_GE(before, 2);
    here.clock_step -= hour;
    here.let_pass(hour - 10 * seconds);
    EXPECT_EQ(device.requests(heartbeat), before);
    EXPECT_EQ(device.links_made(), 1);
    here.let_pass(30 * seconds);
    EXPECT_GT(device.requests(heartbeat), before);
    EXPECT_EQ(log_out(), 0);
}

TEST_F(ClockStep, LeavesThePauseBeforeAReconnectionAndLogoutAlone)
{
    lose_link_and_wait_for("Waiting for 3 seconds");
    here.clock_step -= hour;
    const micros begun = here.now();
    EXPECT_TRUE(here.wait([&] { return device.links_made() == 2; }, 10 * seconds));
    EXPECT_GE(here.now() - begun, 2900 * milliseconds);
    EXPECT_LE(here.now() - begun, 3200 * milliseconds);
    EXPECT_EQ(log_out(), 0);
}
