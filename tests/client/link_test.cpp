// The first fact: the link. Whatever becomes of events, the layer finds out.
#include "client_kit.h"

#include "log_tap.h"

namespace
{

using namespace support;
using testing::ElementsAre;
using zu::Errc;
using zu::EventKind;
using zu::LinkState;

class LinkFact : public ClientTest
{
protected:
    bool is(LinkState state) const
    {
        return camera->link().state == state;
    }

    const std::set<EventKind> up_or_down{EventKind::link_up, EventKind::link_down};
};

TEST_F(LinkFact, GoesDownAndUpAgainWithAnEventForEach)
{
    log_in();
    const auto first = camera->link().since;
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_TRUE(is(LinkState::down));
    const auto lost = camera->link().since;
    EXPECT_GT(lost, first);
    EXPECT_TRUE(events.wait_for(EventKind::link_up));
    EXPECT_TRUE(is(LinkState::up));
    EXPECT_GT(camera->link().since, lost);
    EXPECT_EQ(camera->stats().reconnections, 1U);
    EXPECT_THAT(events.only(up_or_down), ElementsAre(EventKind::link_down, EventKind::link_up));
}

TEST_F(LinkFact, TellsRequestsAtOnceThatNothingCanBeSent)
{
    log_in();
    device->refuse();
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_EQ(camera->standard(1, 1), Errc::link_down);
    EXPECT_EQ(camera->start_stream(), Errc::link_down);
    EXPECT_EQ(camera->stats().requests_failed, 2U);
    EXPECT_TRUE(device->received().empty());
    device->serve_again();
    EXPECT_TRUE(events.wait_for(EventKind::link_up));
    EXPECT_EQ(camera->standard(1, 1), std::error_code());
}

TEST_F(LinkFact, IsLostByAResetToo)
{
    log_in();
    device->reset_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_TRUE(events.wait_for(EventKind::link_up));
}

TEST_F(LinkFact, IsLostWhileARequestWaits)
{
    device->behave(mute());
    log_in();
    std::error_code outcome;
    std::thread caller([&] { outcome = camera->standard(1, 1, long_enough); });
    EXPECT_TRUE(eventually([&] { return asked(move_message) == 1; }));
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    caller.join();
    EXPECT_EQ(outcome, Errc::no_answer);
}

// Between Login and the attaching of the callbacks nobody hears of a lost link.
TEST_F(LinkFact, IsLostBeforeTheCallbacksAreAttached)
{
    const log_tap lines(ZU_LOG_LEVEL_TRACE); // a handler is not told every line whole
    log_hold before_attaching("ZU_NET_DEV_Login", "leave ZU_NET_DEV_Login");
    std::thread maker([this] {
        zu::CameraOptions options;
        options.on_event = events.handler();
        camera = std::make_unique<zu::Camera>(address_of(device->port()), options);
    });
    EXPECT_TRUE(before_attaching.reached());
    EXPECT_TRUE(eventually([this] { return device->links_open() == 1; }));
    device->drop_links();
    EXPECT_TRUE(lines.wait_for("sdk_user->used = -1;\n"));
    before_attaching.let_go();
    maker.join();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_TRUE(events.wait_for(EventKind::link_up)) << "attached by then";
    EXPECT_TRUE(is(LinkState::up));
    EXPECT_EQ(camera->start_stream(), std::error_code());
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(camera->next_frame(long_enough)) << "frames find their way";
    EXPECT_TRUE(events.wait_for(EventKind::heartbeat)) << "and events";
    EXPECT_EQ(events.only(up_or_down).front(), EventKind::link_down);
    camera.reset(); // while the log level lets requests fail
}

// A look that fails because the link is down is nothing to tell the program about. The C library's
// lines go through one buffer, so a line of another thread may be handed out as that of a look; no
// other thread writes one while the device manager is held.
TEST_F(LinkFact, IsLookedAtWithoutALineInTheLog)
{
    library.reset();
    LineLog lines;
    library = std::make_unique<zu::Library>(zu::LibraryOptions{lines.handler(), true});
    const stopped_clock still; // no heartbeat comes
    {
        const log_hold first_time_up("sdk_devmanager_main", "sdk_user->used = ZU_SDK_USER_USED");
        log_in();
        EXPECT_EQ(lines.count("SetEventCallBack"), 0U);
        EXPECT_EQ(lines.count("SetStreamCallBack"), 0U);
    }
    log_hold before_the_pause("sdk_devmanager_main", "Connection failed/lost");
    device->refuse();
    device->drop_links();
    EXPECT_TRUE(before_the_pause.reached());
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    const size_t by_then = lines.all().size();
    EXPECT_EQ(camera->standard(1, 1), Errc::link_down); // looks, as the camera's thread does
    EXPECT_TRUE(all_along([&] { return lines.all().size() == by_then; }, milliseconds(2500)));
    before_the_pause.let_go();
    EXPECT_TRUE(eventually([&] { return lines.all().size() > by_then; })) << "others are told";
}

// Even when the program's handler takes longer than the link needs to come back.
TEST_F(LinkFact, IsTrueWhileAHandlerIsSlow)
{
    std::atomic<bool> go_on{false};
    zu::CameraOptions options;
    options.on_event = [&, take = events.handler()](const zu::Event& event) {
        take(event);
        eventually([&] { return event.kind != EventKind::link_down || go_on.load(); });
    };
    log_in(std::move(options));
    device->drop_links();
    EXPECT_TRUE(events.wait_for(EventKind::link_down));
    EXPECT_TRUE(eventually([this] { return is(LinkState::up); }));
    EXPECT_EQ(events.count(EventKind::link_up), 0);
    go_on = true;
    EXPECT_TRUE(events.wait_for(EventKind::link_up));
    camera.reset(); // before what its handler uses
}

TEST_F(LinkFact, HasEventsInTheOrderOfTheirTimes)
{
    log_in();
    for (int round = 1; round <= 2; round++) {
        device->drop_links();
        ASSERT_TRUE(is_up_again(round));
    }
    const auto all = events.all();
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end(), [](const auto& one, const auto& other) {
        return one.at < other.at;
    }));
    EXPECT_EQ(camera->stats().reconnections, 2U);
}

} // namespace
