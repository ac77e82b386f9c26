// Key frames that the layer asks for by itself: when a decoder has lost its footing, once a second
// at most, until one has come.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::EventKind;

class KeyFrames : public ClientTest
{
protected:
    zu::Camera& start(zu::CameraOptions options = {})
    {
        options.queue.frames = 2;
        device->behave(answering([this](peer& end, const message& m) {
            if (m.type == key_frame_message) {
                const std::lock_guard<std::mutex> lock(guard);
                asked_at.push_back(zu::Clock::now());
            }
            answers_with(0)(end, m);
        }));
        zu::Camera& its = log_in(std::move(options));
        EXPECT_EQ(its.start_stream(), std::error_code());
        return its;
    }
    size_t times_asked() const
    {
        const std::lock_guard<std::mutex> lock(guard);
        return asked_at.size();
    }
    zu::Clock::time_point asked_first_but(size_t others) const
    {
        const std::lock_guard<std::mutex> lock(guard);
        return asked_at.at(others);
    }
    // More frames than the queue has room for.
    void overflow() const
    {
        for (int i = 0; i < 5; i++) {
            device->send_to_all(video(i == 0 ? h264_key : h264_delta));
        }
    }

    mutable std::mutex guard;
    std::vector<zu::Clock::time_point> asked_at;
};

TEST_F(KeyFrames, AreNotAskedForWhileAllIsWell)
{
    zu::Camera& its = start();
    for (int i = 0; i < 20; i++) {
        device->send_to_all(video(i == 0 ? h264_key : h264_delta));
        EXPECT_TRUE(its.next_frame(long_enough));
    }
    EXPECT_EQ(times_asked(), 0U);
    EXPECT_EQ(its.stats().key_frames_asked_for, 0U);
}

TEST_F(KeyFrames, AreAskedForAfterADropOnceASecondUntilOneComes)
{
    zu::Camera& its = start();
    const auto begin = zu::Clock::now();
    overflow();
    EXPECT_TRUE(eventually([this] { return times_asked() >= 3; }));
    // The device has it later than it is sent, so this holds for the third, whatever the first
    // took.
    EXPECT_GE(asked_first_but(2) - begin, seconds(2));
    EXPECT_TRUE(its.next_frame(long_enough));
    EXPECT_TRUE(its.next_frame(long_enough));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(its.next_frame(long_enough));
    const size_t by_then = times_asked();
    EXPECT_TRUE(all_along([&] { return times_asked() <= by_then + 1; }, milliseconds(2500)));
    EXPECT_EQ(its.stats().key_frames_asked_for, times_asked());
    EXPECT_EQ(static_cast<size_t>(events.count(EventKind::key_frame_asked_for)), times_asked());
}

TEST_F(KeyFrames, AreAskedForWhenNewerFramesTookTheirPlace)
{
    zu::CameraOptions options;
    options.queue.when_full = zu::WhenFull::newest_only;
    start(std::move(options));
    overflow();
    EXPECT_TRUE(events.wait_for(EventKind::key_frame_asked_for));
}

// The library asks once when it has started the stream anew; this is when that has not helped.
TEST_F(KeyFrames, AreAskedForAfterAReconnection)
{
    zu::Camera& its = start();
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(its.next_frame(long_enough));
    device->drop_links();
    ASSERT_TRUE(is_up_again());
    const stopped_clock still; // on a busy machine the library shall not take this link for dead
    EXPECT_EQ(device->send_to_all(video(h264_delta)), 1);
    EXPECT_TRUE(events.wait_for(EventKind::key_frame_asked_for, 2));
    // It is asked for because of the reconnection alone, so that says nothing about the frame.
    EXPECT_TRUE(eventually([&] { return its.stats().dropped_awaiting_key == 1; }));
    EXPECT_FALSE(its.next_frame(milliseconds(0))) << "no decoder could begin with it";
    EXPECT_EQ(device->send_to_all(video(h264_key)), 1);
    const auto key = its.next_frame(long_enough);
    ASSERT_TRUE(key) << its.stats().frames << " frames, " << its.stats().reconnections
                     << " reconnections";
    EXPECT_EQ(key->number, 3U);
    EXPECT_EQ(its.stats().dropped_awaiting_key, 1U);
}

TEST_F(KeyFrames, AreAskedForAfterAReconnectionForAHandlerToo)
{
    std::atomic<int> frames{0};
    zu::CameraOptions options;
    options.on_frame = [&](const zu::FrameView&) { ++frames; };
    start(std::move(options));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(eventually([&] { return frames == 1; }));
    device->drop_links();
    ASSERT_TRUE(is_up_again());
    EXPECT_TRUE(events.wait_for(EventKind::key_frame_asked_for));
    device->send_to_all(video(h264_key));
    EXPECT_TRUE(eventually([&] { return frames == 2; }));
    const int by_then = events.count(EventKind::key_frame_asked_for);
    EXPECT_TRUE(
        all_along([&] { return events.count(EventKind::key_frame_asked_for) <= by_then + 1; },
                  milliseconds(2500)));
    camera.reset(); // before what its handler uses
}

TEST_F(KeyFrames, AreNotAskedForWhenTheStreamWasStopped)
{
    zu::Camera& its = start();
    overflow();
    EXPECT_TRUE(events.wait_for(EventKind::key_frame_asked_for));
    EXPECT_EQ(its.stop_stream(), std::error_code());
    const size_t by_then = times_asked();
    overflow(); // late
    EXPECT_TRUE(all_along([&] { return times_asked() <= by_then + 1; }, milliseconds(2500)));
}

TEST_F(KeyFrames, AreNotAskedForWhenTheProgramDoesNotWantIt)
{
    zu::CameraOptions options;
    options.ask_for_key_frames = false;
    start(std::move(options));
    overflow();
    EXPECT_TRUE(events.wait_for(EventKind::frames_dropped));
    EXPECT_TRUE(all_along([this] { return times_asked() == 0; }, milliseconds(1500)));
}

} // namespace
