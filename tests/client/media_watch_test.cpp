// The rule about frames that stall and trickle, on a clock of the test's own.
#include "client_kit.h"
#include "media_watch.hpp"

namespace
{

using namespace support;
using zu::EventKind;
using zu::MediaState;
using zu::detail::MediaWatch;

class Media : public testing::Test
{
protected:
    // Lets time pass in steps, with frames at a rate; what was told meanwhile.
    std::vector<EventKind> go_on(milliseconds duration, unsigned rate, bool video = true)
    {
        const auto end = now + duration;
        const auto pause = rate == 0 ? duration : milliseconds(1000) / rate;
        auto next_frame = now + pause;
        while (now < end) {
            now += milliseconds(10);
            note(watch.look(now));
            while (rate > 0 && next_frame <= now) {
                note(watch.frame(now, video));
                next_frame += pause;
            }
        }
        return std::exchange(told, {});
    }
    void note(std::optional<EventKind> event)
    {
        if (event) {
            told.push_back(*event);
        }
    }
    MediaState state() const
    {
        return watch.fact(now).state;
    }

    zu::Clock::time_point now = zu::Clock::now();
    MediaWatch watch{seconds(3)};
    std::vector<EventKind> told;
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Media, IsOffWithoutAStream)
{
    EXPECT_EQ(state(), MediaState::off);
    EXPECT_THAT(go_on(seconds(10), 25), IsEmpty()) << "whatever comes";
    EXPECT_EQ(state(), MediaState::off);
    EXPECT_EQ(watch.due(), zu::Clock::time_point::max());
    EXPECT_TRUE(watch.fact(now).frame_age);
}

TEST_F(Media, IsStalledUntilTheFirstFrameAndTellsItAfterAWhile)
{
    EXPECT_TRUE(watch.begin(now));
    EXPECT_EQ(state(), MediaState::stalled);
    EXPECT_FALSE(watch.fact(now).frame_age);
    EXPECT_EQ(watch.due(), now + seconds(3));
    EXPECT_THAT(go_on(milliseconds(2990), 0), IsEmpty());
    EXPECT_THAT(go_on(milliseconds(10), 0), ElementsAre(EventKind::media_stalled));
    EXPECT_EQ(watch.gaps(), 1U);
    EXPECT_THAT(go_on(seconds(20), 0), IsEmpty()) << "once";
    EXPECT_EQ(watch.gaps(), 1U);
}

TEST_F(Media, FlowsStallsAndFlowsAgain)
{
    watch.begin(now);
    EXPECT_THAT(go_on(seconds(10), 25), ElementsAre(EventKind::media_flowing));
    const auto since = watch.fact(now).since;
    EXPECT_THAT(go_on(seconds(4), 0), ElementsAre(EventKind::media_stalled));
    EXPECT_GT(watch.fact(now).since, since);
    EXPECT_GE(*watch.fact(now).frame_age, seconds(4));
    EXPECT_THAT(go_on(seconds(10), 25), ElementsAre(EventKind::media_flowing));
    EXPECT_EQ(watch.gaps(), 1U);
}

TEST_F(Media, FlowsWithSoundAlone)
{
    watch.begin(now);
    watch.frame_rate(25);
    EXPECT_THAT(go_on(seconds(20), 50, false), ElementsAre(EventKind::media_flowing));
    EXPECT_EQ(state(), MediaState::flowing);
}

TEST_F(Media, TricklesWhenVideoIsLessThanHalfOfTheFrameRate)
{
    watch.begin(now);
    watch.frame_rate(25);
    EXPECT_THAT(go_on(seconds(10), 13), ElementsAre(EventKind::media_flowing)) << "just enough";
    EXPECT_THAT(go_on(seconds(10), 12), ElementsAre(EventKind::media_trickling));
    EXPECT_EQ(watch.gaps(), 0U);
}

TEST_F(Media, TricklesWhenOnlySoundIsLeft)
{
    watch.begin(now);
    watch.frame_rate(25);
    go_on(seconds(10), 25);
    EXPECT_THAT(go_on(seconds(10), 50, false), ElementsAre(EventKind::media_trickling));
}

TEST_F(Media, FlowsAgainFromThreeQuartersOn)
{
    watch.begin(now);
    watch.frame_rate(20);
    go_on(seconds(5), 20);
    EXPECT_THAT(go_on(seconds(10), 5), ElementsAre(EventKind::media_trickling));
    EXPECT_THAT(go_on(seconds(10), 13), IsEmpty()) << "better, but not yet good";
    EXPECT_THAT(go_on(seconds(10), 16), ElementsAre(EventKind::media_flowing));
    EXPECT_THAT(go_on(seconds(10), 12), IsEmpty()) << "worse, but not yet bad";
}

TEST_F(Media, StallsOutOfATrickleToo)
{
    watch.begin(now);
    watch.frame_rate(20);
    go_on(seconds(5), 20);
    go_on(seconds(10), 2);
    EXPECT_EQ(state(), MediaState::trickling);
    EXPECT_THAT(go_on(seconds(4), 0), ElementsAre(EventKind::media_stalled));
    EXPECT_THAT(go_on(seconds(1), 20), ElementsAre(EventKind::media_flowing));
}

TEST_F(Media, GoesByWhatCameBeforeWithoutAFrameRate)
{
    watch.begin(now);
    EXPECT_THAT(go_on(seconds(20), 20), ElementsAre(EventKind::media_flowing));
    EXPECT_THAT(go_on(seconds(10), 4), ElementsAre(EventKind::media_trickling));
    EXPECT_THAT(go_on(seconds(10), 20), ElementsAre(EventKind::media_flowing));
}

TEST_F(Media, DoesNotBelieveEveryFrameRate)
{
    watch.begin(now);
    watch.frame_rate(4000000000U);
    EXPECT_THAT(go_on(seconds(20), 25), ElementsAre(EventKind::media_flowing));
}

TEST_F(Media, IsNotJudgedBeforeAWholeWindow)
{
    watch.begin(now);
    watch.frame_rate(25);
    EXPECT_THAT(go_on(milliseconds(2500), 2), ElementsAre(EventKind::media_flowing));
    EXPECT_THAT(go_on(seconds(2), 2), ElementsAre(EventKind::media_trickling));
}

TEST_F(Media, LooksAtAWindowOfASecondAtLeast)
{
    watch = MediaWatch(milliseconds(200));
    watch.begin(now);
    watch.frame_rate(25);
    EXPECT_THAT(go_on(milliseconds(900), 10), ElementsAre(EventKind::media_flowing));
    EXPECT_THAT(go_on(milliseconds(700), 10), ElementsAre(EventKind::media_trickling));
    EXPECT_THAT(go_on(milliseconds(300), 0), ElementsAre(EventKind::media_stalled));
}

TEST_F(Media, EndsWithTheStream)
{
    watch.begin(now);
    go_on(seconds(5), 25);
    watch.end(now);
    EXPECT_EQ(state(), MediaState::off);
    EXPECT_THAT(go_on(seconds(10), 0), IsEmpty());
    EXPECT_TRUE(watch.begin(now));
    EXPECT_EQ(state(), MediaState::stalled);
}

TEST_F(Media, IsNotDisturbedByAnotherStart)
{
    watch.begin(now);
    go_on(seconds(5), 25);
    EXPECT_FALSE(watch.begin(now));
    EXPECT_EQ(state(), MediaState::flowing);
}

TEST_F(Media, WantsToBeLookedAtWhenSomethingMayBecomeDue)
{
    watch.begin(now);
    EXPECT_EQ(watch.frame(now, true), EventKind::media_flowing);
    EXPECT_EQ(watch.due(), now + milliseconds(750)) << "a quarter of the window";
    EXPECT_THAT(go_on(milliseconds(2900), 0), IsEmpty());
    EXPECT_LE(watch.due(), now + milliseconds(100));
}

} // namespace
