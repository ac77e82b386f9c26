// Moments by the monotonic clock. One thread.
#include <gtest/gtest.h>

#include "deadline.h"

TEST(Deadline, ThatLiesAheadHasTimeLeft)
{
    const timespec end = deadline_in(1000);
    EXPECT_FALSE(deadline_has_passed(end));
    const timeval left = time_until(end);
    EXPECT_GT(left.tv_sec, 0);
    EXPECT_LE(left.tv_sec, 1000);
    EXPECT_GE(left.tv_usec, 0);
    EXPECT_LT(left.tv_usec, 1000000);
}

TEST(Deadline, ThatHasPassedHasNothingLeft)
{
    for (const int seconds : {0, -1, -1000}) {
        const timespec end = deadline_in(seconds);
        EXPECT_TRUE(deadline_has_passed(end)) << seconds;
        EXPECT_EQ(time_until(end).tv_sec, 0) << seconds;
        EXPECT_EQ(time_until(end).tv_usec, 0) << seconds;
    }
}
