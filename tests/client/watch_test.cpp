// The book of facts and events on its own: what is told, how often, and what wakes the camera's
// thread.
#include "client_kit.h"
#include "watch.hpp"

namespace
{

using namespace support;
using zu::EventKind;
using zu::detail::Watch;

class Book : public testing::Test
{
protected:
    int told(EventKind kind)
    {
        const auto events = watch.take_events();
        return static_cast<int>(std::count_if(
            events.begin(), events.end(), [=](const auto& event) { return event.kind == kind; }));
    }

    Watch watch{std::chrono::hours(1), std::chrono::hours(1)};
};

TEST_F(Book, TellsALinkOnlyWhenItChanges)
{
    watch.logged_in();
    EXPECT_FALSE(watch.link_is(true));
    EXPECT_TRUE(watch.link_is(false));
    EXPECT_FALSE(watch.link_is(false));
    EXPECT_TRUE(watch.link_is(true));
    EXPECT_EQ(watch.take_events().size(), 2U);
}

TEST_F(Book, ForgetsWhatComesWithoutEndWhenNobodyTakesIt)
{
    for (int i = 0; i < 3000; i++) {
        watch.heartbeat();
        watch.tell(EventKind::key_frame_asked_for);
    }
    watch.link_is(true);
    EXPECT_TRUE(watch.link_is(false));
    const auto events = watch.take_events();
    EXPECT_LE(events.size(), 1010U);
    EXPECT_EQ(events.back().kind, EventKind::link_down) << "all others are told";
    zu::Stats stats;
    watch.count(stats);
    EXPECT_EQ(stats.heartbeats, 3000U);
}

TEST_F(Book, KeepsNoEventsThatAreNotTaken)
{
    Watch unheard(std::chrono::hours(1), std::chrono::hours(1), false);
    unheard.logged_in();
    for (int i = 0; i < 3000; i++) {
        EXPECT_TRUE(unheard.link_is(i % 2 == 1));
    }
    EXPECT_TRUE(unheard.take_events().empty());
    zu::Stats stats;
    unheard.count(stats);
    EXPECT_EQ(stats.reconnections, 1500U);
}

TEST_F(Book, TellsDropsOnceASecond)
{
    const auto begin = zu::Clock::now();
    watch.drops_begin();
    EXPECT_EQ(told(EventKind::frames_dropped), 1);
    EXPECT_TRUE(eventually([this] {
        watch.drops_begin();
        return told(EventKind::frames_dropped) == 1;
    }));
    EXPECT_GE(zu::Clock::now() - begin, seconds(1));
}

TEST_F(Book, WakesItsThreadsForAnEvent)
{
    std::thread own([this] { watch.wait(zu::Clock::now() + long_enough); });
    std::thread events([this] {
        const auto taken = watch.wait_for_events();
        ASSERT_EQ(taken.size(), 1U);
        EXPECT_EQ(taken[0].kind, EventKind::movement_stopped);
    });
    watch.tell(EventKind::movement_stopped);
    own.join();
    events.join();
}

TEST_F(Book, WakesItsThreadsAtTheEnd)
{
    std::thread own([this] { watch.wait(zu::Clock::now() + std::chrono::hours(1)); });
    std::thread events([this] { EXPECT_TRUE(watch.wait_for_events().empty()); });
    watch.end();
    own.join();
    events.join();
    watch.tell(EventKind::movement_stopped);
    EXPECT_TRUE(watch.wait_for_events().empty()) << "nothing is told any more";
}

// A frame's time is taken on its way here, and another thread may have been quicker.
TEST_F(Book, HasEventsInTheOrderOfTheirTimes)
{
    zu::FrameView frame = {};
    frame.kind = zu::FrameKind::video;
    frame.arrived = zu::Clock::now() - seconds(1);
    watch.stream_begins();
    watch.tell(EventKind::movement_stopped);
    watch.frame(frame);
    const auto events = watch.take_events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1].kind, EventKind::media_flowing);
    EXPECT_GE(events[1].at, events[0].at);
}

TEST_F(Book, WakesItsThreadWhenAFactChangesByItself)
{
    const auto begin = zu::Clock::now(); // silence counts from the login
    Watch quick(milliseconds(200), milliseconds(300));
    quick.logged_in();
    quick.stream_begins();
    std::vector<EventKind> kinds;
    while (kinds.size() < 2 && zu::Clock::now() < begin + long_enough) {
        quick.wait(begin + long_enough);
        for (const zu::Event& event : quick.take_events()) {
            kinds.push_back(event.kind);
        }
    }
    EXPECT_THAT(kinds, testing::ElementsAre(EventKind::media_stalled, EventKind::peer_silent));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(300));
}

TEST_F(Book, WaitsNoLongerThanItIsTold)
{
    const auto until = zu::Clock::now() + milliseconds(50);
    watch.wait(until);
    EXPECT_GE(zu::Clock::now(), until);
}

} // namespace
