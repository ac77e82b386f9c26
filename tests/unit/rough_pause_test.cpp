// A pause that may end late, and the timer slack that it leaves behind.
#include <chrono>
#include <sys/prctl.h>

#include <gtest/gtest.h>

#include "rough_pause.h"
#include "seam.h"

using support::before_call;

namespace
{

constexpr useconds_t pause_us = 2000;
constexpr int ten_ms = 10 * 1000 * 1000;

int slack()
{
    return prctl(PR_GET_TIMERSLACK);
}

// The slack that a pause has, when the thread has `own`.
int slack_during_a_pause(int own)
{
    prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(own));
    int during = 0;
    const before_call paused("usleep", [&] { during = slack(); });
    rough_pause(pause_us);
    EXPECT_EQ(paused.count(), 1);
    EXPECT_EQ(slack(), own);
    return during;
}

} // namespace

TEST(RoughPause, LastsItsTime)
{
    const auto begun = std::chrono::steady_clock::now();
    rough_pause(pause_us);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::microseconds(pause_us));
}

TEST(RoughPause, HasASlackThatTheThreadHasNotAfterwards)
{
    EXPECT_EQ(slack_during_a_pause(50000), ten_ms);
    EXPECT_EQ(slack_during_a_pause(123), ten_ms);
}

TEST(RoughPause, LeavesALargerSlackOfTheApplicationAlone)
{
    EXPECT_EQ(slack_during_a_pause(2 * ten_ms), 2 * ten_ms);
}
