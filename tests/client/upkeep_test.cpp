// What the layer wants by itself, and what it takes the stream for, on its own.
#include "client_kit.h"
#include "upkeep.hpp"

namespace
{

using namespace support;
using zu::detail::Chore;
using zu::detail::Upkeep;

zu::Clock::time_point after(milliseconds time)
{
    static const auto begin = zu::Clock::now();
    return begin + time;
}

TEST(Stream, IsThereWhenAnyOfItsStartsWasTaken)
{
    Upkeep upkeep;
    upkeep.stream_begins();
    upkeep.stream_begins();
    EXPECT_FALSE(upkeep.start_is_over(true)) << "the other one decides";
    EXPECT_TRUE(upkeep.stream_is_wanted());
    EXPECT_FALSE(upkeep.start_is_over(false));
    EXPECT_TRUE(upkeep.stream_is_wanted());
}

TEST(Stream, IsNotThereWhenAllOfItsStartsWereRefused)
{
    Upkeep upkeep;
    upkeep.stream_begins();
    upkeep.stream_begins();
    EXPECT_FALSE(upkeep.start_is_over(true));
    EXPECT_TRUE(upkeep.start_is_over(true));
    EXPECT_FALSE(upkeep.stream_is_wanted());
}

TEST(Stream, StaysWhenAnotherIsRefused)
{
    Upkeep upkeep;
    upkeep.stream_begins();
    EXPECT_FALSE(upkeep.start_is_over(false));
    upkeep.stream_begins();
    EXPECT_FALSE(upkeep.start_is_over(true));
    EXPECT_TRUE(upkeep.stream_is_wanted());
    upkeep.stream_ends();
    upkeep.stream_begins();
    EXPECT_TRUE(upkeep.start_is_over(true)) << "what was before the stop does not count";
}

TEST(Stream, ThatWasStoppedIsStoppedAgainWhenItComesBack)
{
    Upkeep upkeep;
    upkeep.stream_begins();
    upkeep.start_is_over(false);
    upkeep.stream_ends();
    EXPECT_FALSE(upkeep.frame_came()) << "a late one";
    upkeep.link_is_lost();
    EXPECT_TRUE(upkeep.frame_came());
    EXPECT_FALSE(upkeep.frame_came()) << "wanted already";
    const auto now = zu::Clock::now();
    EXPECT_EQ(upkeep.take_due(now), Chore::stop_stream);
    upkeep.stream_begins(); // the program has thought better of it
    EXPECT_FALSE(upkeep.begins(Chore::stop_stream, now));
    EXPECT_FALSE(upkeep.is_over(Chore::stop_stream, false));
    EXPECT_EQ(upkeep.next(), zu::detail::never);
}

TEST(KeyFrame, IsAskedForOnceASecondAtMost)
{
    Upkeep upkeep;
    upkeep.want_key_frame(after(milliseconds(0)));
    EXPECT_EQ(upkeep.take_due(after(milliseconds(0))), Chore::key_frame);
    EXPECT_TRUE(upkeep.begins(Chore::key_frame, after(milliseconds(300))));
    EXPECT_EQ(upkeep.take_due(after(milliseconds(5000))), std::nullopt) << "one is under way";
    upkeep.is_over(Chore::key_frame, true);
    EXPECT_EQ(upkeep.next(), after(milliseconds(1300)));
    upkeep.key_frame_came();
    EXPECT_EQ(upkeep.next(), zu::detail::never);
    upkeep.want_key_frame(after(milliseconds(600))); // another drop
    EXPECT_EQ(upkeep.next(), after(milliseconds(1300)));
}

TEST(Moves, AreWaitedForUntilNoneCanBeginAnyMore)
{
    Upkeep upkeep;
    upkeep.wait_for_moves(zu::Clock::now() + std::chrono::hours(1)); // at once
    upkeep.move_is_handed_in();
    const auto begin = zu::Clock::now();
    upkeep.wait_for_moves(begin + milliseconds(30));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(30));
    std::thread gone([&] { upkeep.move_is_gone(); });
    upkeep.wait_for_moves(zu::Clock::now() + std::chrono::hours(1));
    gone.join();
}

} // namespace
