// What the layer wants by itself, and what it takes the stream for, on its own.
#include "client_kit.h"
#include "upkeep.hpp"

namespace
{

using namespace support;
using zu::detail::Chore;
using zu::detail::Upkeep;

std::optional<Chore> chore_of(const std::optional<zu::detail::Due>& due)
{
    return due ? std::optional<Chore>(due->chore) : std::nullopt;
}

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
    EXPECT_EQ(chore_of(upkeep.take_due(now)), Chore::stop_stream);
    upkeep.stream_begins(); // the program has thought better of it
    EXPECT_FALSE(upkeep.begins({Chore::stop_stream}, now));
    EXPECT_FALSE(upkeep.is_over({Chore::stop_stream}, false));
    EXPECT_EQ(upkeep.next(), zu::detail::never);
}

TEST(KeyFrame, IsAskedForOnceASecondAtMost)
{
    Upkeep upkeep;
    upkeep.want_key_frame(after(milliseconds(0)));
    EXPECT_EQ(chore_of(upkeep.take_due(after(milliseconds(0)))), Chore::key_frame);
    EXPECT_TRUE(upkeep.begins({Chore::key_frame}, after(milliseconds(300))));
    EXPECT_FALSE(upkeep.take_due(after(milliseconds(5000)))) << "one is under way";
    upkeep.is_over({Chore::key_frame}, true);
    EXPECT_EQ(upkeep.next(), after(milliseconds(1300)));
    upkeep.key_frame_came();
    EXPECT_EQ(upkeep.next(), zu::detail::never);
    upkeep.want_key_frame(after(milliseconds(600))); // another drop
    EXPECT_EQ(upkeep.next(), after(milliseconds(1300)));
}

// A device that is slow to answer is told to start more than once.
TEST(Stream, ThatIsStoppedDuringItsRestartIsStoppedAgainAsOftenAsItComesBack)
{
    Upkeep upkeep;
    upkeep.stream_begins();
    upkeep.start_is_over(false);
    upkeep.link_is_lost();
    EXPECT_FALSE(upkeep.frame_came()) << "wanted";
    upkeep.stream_ends();
    for (int start = 1; start <= 3; start++) {
        EXPECT_TRUE(upkeep.frame_came()) << start;
        const auto due = upkeep.take_due(after(std::chrono::hours(start)));
        ASSERT_EQ(chore_of(due), Chore::stop_stream);
        EXPECT_TRUE(upkeep.is_over(*due, true));
    }
    upkeep.stream_begins();
    EXPECT_FALSE(upkeep.frame_came());
}

TEST(Stops, OfAMovementDoNotWaitForTheAnswerToTheOneBefore)
{
    Upkeep upkeep;
    EXPECT_TRUE(upkeep.move_begins(after(milliseconds(200))));
    upkeep.move_is_over();
    const auto first = upkeep.take_due(after(milliseconds(200)));
    ASSERT_EQ(chore_of(first), Chore::stop_moving);
    EXPECT_EQ(upkeep.next(), after(milliseconds(1200)));
    EXPECT_TRUE(upkeep.move_begins(after(milliseconds(500)))); // the next movement's own time
    upkeep.move_is_over();
    const auto second = upkeep.take_due(after(milliseconds(500)));
    ASSERT_EQ(chore_of(second), Chore::stop_moving);
    EXPECT_FALSE(upkeep.begins(*first, after(milliseconds(600)))) << "of another movement";
    EXPECT_FALSE(upkeep.is_over(*first, true)) << "of another movement";
    EXPECT_TRUE(upkeep.begins(*second, after(milliseconds(600))));
    EXPECT_TRUE(upkeep.is_over(*second, true));
    EXPECT_FALSE(upkeep.is_moving());
}

TEST(Moves, AreWaitedForUntilNoneCanBeginAnyMore)
{
    Upkeep upkeep;
    upkeep.end_moves(zu::Clock::now() + std::chrono::hours(1)); // at once
    upkeep.move_is_handed_in();
    const auto begin = zu::Clock::now();
    upkeep.end_moves(begin + milliseconds(30));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(30));
    std::thread gone([&] { upkeep.move_is_gone(); });
    upkeep.end_moves(zu::Clock::now() + std::chrono::hours(1));
    gone.join();
    EXPECT_FALSE(upkeep.move_begins(after(milliseconds(0))));
    EXPECT_FALSE(upkeep.is_moving());
}

} // namespace
