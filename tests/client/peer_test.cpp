// The second fact: whether the device is alive, apart from whether its link is up.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::EventKind;

class PeerFact : public ClientTest
{
protected:
    const std::set<EventKind> alive_or_silent{EventKind::peer_alive, EventKind::peer_silent};
};

zu::CameraOptions quickly(milliseconds silent_after)
{
    zu::CameraOptions options;
    options.peer_silent_after = silent_after;
    return options;
}

TEST_F(PeerFact, IsUnknownUntilTheFirstHeartbeat)
{
    stopped_clock still; // no heartbeat but the one that is let come
    const zu::Camera& its = log_in(quickly(long_enough));
    EXPECT_FALSE(its.peer().alive);
    EXPECT_FALSE(its.peer().silence);
    let_a_heartbeat_come(still);
    EXPECT_TRUE(events.wait_for(EventKind::heartbeat));
    EXPECT_TRUE(its.peer().alive);
    ASSERT_TRUE(its.peer().silence);
    EXPECT_GE(*its.peer().silence, zu::Clock::duration::zero());
    EXPECT_TRUE(events.wait_for(EventKind::peer_alive));
    EXPECT_TRUE(eventually([&] {
        return its.stats().heartbeats == static_cast<uint64_t>(events.count(EventKind::heartbeat));
    }));
}

// The device goes on sending pictures, so its link is up and its media flow.
TEST_F(PeerFact, IsSilentThoughTheLinkIsUpAndMediaFlow)
{
    zu::CameraOptions options = quickly(milliseconds(5000));
    options.stalled_after = long_enough;
    const zu::Camera& its = log_in(std::move(options));
    EXPECT_EQ(camera->start_stream(), std::error_code());
    const Streamer pictures(*device, video(h264_key), milliseconds(20));
    EXPECT_TRUE(events.wait_for(EventKind::peer_alive));
    device->behave(answering([](peer&, const message&) {}));
    EXPECT_TRUE(events.wait_for_latest(EventKind::peer_silent, alive_or_silent));
    EXPECT_FALSE(its.peer().alive);
    EXPECT_GE(*its.peer().silence, milliseconds(5000));
    EXPECT_EQ(its.link().state, zu::LinkState::up);
    EXPECT_NE(its.media().state, zu::MediaState::stalled);
    EXPECT_EQ(its.stats().gaps, 0U);
    device->behave({});
    EXPECT_TRUE(events.wait_for_latest(EventKind::peer_alive, alive_or_silent));
    EXPECT_TRUE(its.peer().alive);
    EXPECT_EQ(events.count(EventKind::link_down), 0);
}

TEST_F(PeerFact, IsSilentWhenNoHeartbeatIsEverAnswered)
{
    device->behave(answering([](peer&, const message&) {}));
    const zu::Camera& its = log_in(quickly(milliseconds(1000)));
    EXPECT_TRUE(events.wait_for(EventKind::peer_silent));
    EXPECT_FALSE(its.peer().alive);
    EXPECT_FALSE(its.peer().silence) << "there was no answer yet";
}

// The library sends no heartbeats while requests go out, so their answers have to do.
TEST_F(PeerFact, IsAliveByAnAnswerToo)
{
    const stopped_clock still; // no heartbeat comes
    device->behave(answering(answers_with(3)));
    log_in(quickly(long_enough));
    EXPECT_TRUE(zu::refused(camera->standard(1, 1)));
    EXPECT_TRUE(camera->peer().alive);
    EXPECT_EQ(camera->stats().heartbeats, 0U);
    EXPECT_TRUE(events.wait_for(EventKind::peer_alive));
}

} // namespace
