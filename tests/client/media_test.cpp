// The third fact: whether pictures come, apart from whether the device is alive.
#include "client_kit.h"

namespace
{

using namespace support;
using testing::ElementsAre;
using zu::EventKind;
using zu::MediaState;

class MediaFact : public ClientTest
{
protected:
    zu::Camera& start(milliseconds stalled_after)
    {
        zu::CameraOptions options;
        options.stalled_after = stalled_after;
        options.ask_for_key_frames = false;
        options.queue.when_full = zu::WhenFull::newest_only;
        zu::Camera& its = log_in(std::move(options));
        EXPECT_EQ(its.start_stream(), std::error_code());
        return its;
    }
    MediaState state() const
    {
        return camera->media().state;
    }
    // Whether a stall is the latest that has been told since frames came: one may have been told
    // before the first of them, on a busy machine.
    bool has_stalled_since() const
    {
        return events.wait_for_latest(EventKind::media_stalled, flowing_or_stalled);
    }

    const std::set<EventKind> flowing_or_stalled{EventKind::media_flowing,
                                                 EventKind::media_stalled};
};

TEST_F(MediaFact, StallsWhenNoFrameEverComes)
{
    const zu::Camera& its = start(milliseconds(200));
    EXPECT_EQ(state(), MediaState::stalled);
    EXPECT_FALSE(its.media().frame_age);
    EXPECT_TRUE(events.wait_for(EventKind::media_stalled));
    EXPECT_EQ(its.stats().gaps, 1U);
}

// The device answers heartbeats and its link is up: connected, and yet there is no picture.
TEST_F(MediaFact, StallsThoughThePeerIsAlive)
{
    const zu::Camera& its = start(milliseconds(1000));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing));
    EXPECT_TRUE(has_stalled_since());
    EXPECT_EQ(state(), MediaState::stalled);
    EXPECT_GE(*its.media().frame_age, milliseconds(1000));
    EXPECT_TRUE(its.peer().alive);
    EXPECT_EQ(its.link().state, zu::LinkState::up);
}

TEST_F(MediaFact, ResumesWithTheNextFrame)
{
    start(milliseconds(300));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing));
    EXPECT_TRUE(has_stalled_since());
    device->send_to_all(video(h264_delta));
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing, 2));
    EXPECT_TRUE(has_stalled_since());
    auto told = events.only(flowing_or_stalled);
    EXPECT_EQ(camera->stats().gaps, static_cast<uint64_t>(events.count(EventKind::media_stalled)));
    if (told.front() == EventKind::media_stalled) {
        told.erase(told.begin()); // the first frame came late
    }
    EXPECT_THAT(told, ElementsAre(EventKind::media_flowing, EventKind::media_stalled,
                                  EventKind::media_flowing, EventKind::media_stalled));
}

TEST_F(MediaFact, TricklesWhenFewerThanHalfOfTheFramesCome)
{
    start(milliseconds(3000));
    device->send_to_all(system_header(200));
    const Streamer pictures(*device, video(h264_key), milliseconds(100));
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing));
    EXPECT_TRUE(events.wait_for(EventKind::media_trickling));
    EXPECT_EQ(state(), MediaState::trickling);
    device->send_to_all(system_header(1)); // one a second is more than enough now
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing, 2));
}

TEST_F(MediaFact, IsOffAfterAStop)
{
    start(milliseconds(200));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(events.wait_for(EventKind::media_flowing));
    EXPECT_EQ(camera->stop_stream(), std::error_code());
    EXPECT_EQ(state(), MediaState::off);
    const uint64_t gaps = camera->stats().gaps;
    device->send_to_all(video(h264_key)); // late
    EXPECT_TRUE(eventually([this] { return camera->stats().frames == 2; }));
    EXPECT_TRUE(all_along([this] { return state() == MediaState::off; }, milliseconds(600)));
    EXPECT_EQ(camera->stats().gaps, gaps);
}

TEST_F(MediaFact, IsOffWhenTheDeviceRefusesTheStart)
{
    device->behave(answering(answers_with(4)));
    log_in();
    EXPECT_TRUE(zu::refused(camera->start_stream()));
    EXPECT_EQ(state(), MediaState::off);
}

TEST_F(MediaFact, GoesOnWhenTheDeviceRefusesAnotherStream)
{
    start(milliseconds(3000));
    device->behave(answering(answers_with(4)));
    EXPECT_TRUE(zu::refused(camera->start_stream({1, 1})));
    EXPECT_NE(state(), MediaState::off);
}

// After a reconnection the library starts again what was ever started, a stopped stream too.
TEST_F(MediaFact, StaysOffAfterAReconnection)
{
    start(milliseconds(3000));
    EXPECT_EQ(camera->stop_stream(), std::error_code());
    EXPECT_EQ(asked(stop_message), 1U);
    device->behave(answering([](peer& end, const message& m) {
        answers_with(0)(end, m);
        if (m.type == start_message) {
            end.send(video(h264_key));
        }
    }));
    device->drop_links();
    EXPECT_TRUE(eventually([this] { return asked(start_message) == 2; })) << "the library's doing";
    EXPECT_TRUE(eventually([this] { return asked(stop_message) == 2; })) << "the layer's";
    EXPECT_EQ(state(), MediaState::off);
}

// The layer's own stop is still unanswered when the program starts the stream again. Its answer,
// which comes last, must not end what the program has begun since.
TEST_F(MediaFact, BelongsToTheLatestStart)
{
    start(milliseconds(3000));
    EXPECT_EQ(camera->stop_stream(), std::error_code());
    std::mutex guard;
    std::optional<message> late;
    device->behave(answering([&](peer& end, const message& m) {
        const std::lock_guard<std::mutex> lock(guard);
        if (m.type == stop_message) {
            late = m;
            return;
        }
        answers_with(0)(end, m);
        if (m.type == start_message) {
            end.send(video(h264_key));
            if (late) {
                answers_with(0)(end, *late);
            }
        }
    }));
    device->drop_links();
    EXPECT_TRUE(eventually([this] { return asked(stop_message) == 2; })) << "the layer's";
    EXPECT_EQ(camera->start_stream({}, long_enough), std::error_code());
    EXPECT_TRUE(all_along([this] { return state() != MediaState::off; }, milliseconds(500)));
    camera.reset(); // before what its device uses
    device.reset();
}

} // namespace
