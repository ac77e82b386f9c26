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

TEST_F(Book, ForgetsHeartbeatsThatNobodyTakes)
{
    for (int i = 0; i < 3000; i++) {
        watch.heartbeat();
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

TEST_F(Book, WakesItsThreadForAnEvent)
{
    std::thread thread([this] { watch.wait(zu::Clock::now() + long_enough); });
    watch.tell(EventKind::movement_stopped);
    thread.join();
    EXPECT_EQ(told(EventKind::movement_stopped), 1);
}

TEST_F(Book, WakesItsThreadWhenAFactChangesByItself)
{
    Watch quick(milliseconds(200), milliseconds(300));
    quick.logged_in();
    quick.stream_begins();
    const auto begin = zu::Clock::now();
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
