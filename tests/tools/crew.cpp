// Threads that are stopped and waited for, however their work ends.
#include "../../tools/zucam/shared/crew.h"

#include "eventually.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace
{

using support::eventually;
using tool::crew;

class Crew : public testing::Test
{
protected:
    void work()
    {
        ++begun_;
        EXPECT_TRUE(eventually([&] { return stop_.load(); }));
        ++ended_;
    }

    std::atomic<bool> stop_{false};
    std::atomic<int> begun_{0};
    std::atomic<int> ended_{0};
};

TEST_F(Crew, ItsEndStopsAllAndWaitsForThem)
{
    {
        crew workers(stop_);
        for (int i = 0; i < 4; ++i) {
            workers.add([this] { work(); });
        }
        EXPECT_TRUE(eventually([&] { return begun_ == 4; }));
    }
    EXPECT_EQ(ended_, 4);
}

TEST_F(Crew, AFailureInBetweenStopsThoseThatHaveBegun)
{
    const auto fail = [this] {
        crew workers(stop_);
        workers.add([this] { work(); });
        workers.add([this] { work(); });
        throw std::runtime_error("no third one");
    };
    EXPECT_THROW(fail(), std::runtime_error);
    EXPECT_EQ(ended_, 2);
}

} // namespace
