// Frames of a camera: what each block becomes, on both ways to the program.
#include "client_kit.h"

namespace
{

using namespace support;
using zu::Codec;
using zu::FrameKind;

// Frames as a handler has seen them, copied.
class FrameLog
{
public:
    zu::FrameHandler handler()
    {
        return [this](const zu::FrameView& view) {
            const std::lock_guard<std::mutex> lock(guard);
            taken.emplace_back(view);
        };
    }
    std::vector<zu::Frame> wait_for(size_t count) const
    {
        EXPECT_TRUE(eventually([&] { return all().size() >= count; }));
        return all();
    }
    std::vector<zu::Frame> all() const
    {
        const std::lock_guard<std::mutex> lock(guard);
        return taken;
    }

private:
    mutable std::mutex guard;
    std::vector<zu::Frame> taken;
};

class Frames : public ClientTest
{
protected:
    zu::Camera& log_in_with_handler()
    {
        zu::CameraOptions options;
        options.on_frame = seen.handler();
        return log_in(std::move(options));
    }

    FrameLog seen;
};

TEST_F(Frames, AreOfTheKindThatTheirBlockSays)
{
    log_in_with_handler();
    device->send_to_all(system_header(25));
    device->send_to_all(sets(h264_sets));
    device->send_to_all(video(h264_key));
    device->send_to_all(audio());
    device->send_to_all(stream_data("VUYV", pattern(12)));
    device->send_to_all(stream_data("WHAT", pattern(3)));
    device->send_to_all(make_message(0x1100, 0, hex("01 02")));
    device->send_to_all(make_message(0x1100, 0, {}));
    const auto frames = seen.wait_for(8);
    const FrameKind kinds[] = {
        FrameKind::system_header, FrameKind::parameter_sets, FrameKind::video, FrameKind::audio,
        FrameKind::raw_picture,   FrameKind::other,          FrameKind::other, FrameKind::other};
    for (size_t i = 0; i < 8; i++) {
        EXPECT_EQ(frames[i].kind, kinds[i]) << i;
        EXPECT_EQ(frames[i].number, i + 1);
    }
    EXPECT_EQ(frames[2].bytes, h264_key);
    EXPECT_EQ(frames[4].bytes, pattern(12));
    EXPECT_EQ(frames[5].bytes, text("WHAT") + pattern(3)) << "nothing is cut off";
    EXPECT_EQ(frames[6].bytes, hex("01 02"));
    EXPECT_TRUE(frames[7].bytes.empty());
}

TEST_F(Frames, TellKeyFramesAndCodec)
{
    const zu::Camera& its = log_in_with_handler();
    EXPECT_EQ(its.codec(), Codec::unknown);
    device->send_to_all(video(h264_key));
    device->send_to_all(video(h264_delta));
    device->send_to_all(video(h265_key));
    device->send_to_all(video(h265_delta));
    device->send_to_all(sets(h264_sets));
    const auto frames = seen.wait_for(5);
    const bool keys[] = {true, false, true, false, false};
    const Codec codecs[] = {Codec::h264, Codec::h264, Codec::h265, Codec::h265, Codec::h264};
    for (size_t i = 0; i < 5; i++) {
        EXPECT_EQ(frames[i].key, keys[i]) << i;
        EXPECT_EQ(frames[i].codec, codecs[i]) << i;
    }
    EXPECT_EQ(its.codec(), Codec::h265) << "of the last video frame";
    EXPECT_EQ(its.stats().key_frames, 2U);
}

TEST_F(Frames, RememberTheCodecUntilASystemHeader)
{
    log_in_with_handler();
    const bytes fits_both = hex("00 00 01 28 01 af 08");
    device->send_to_all(sets(h265_sets));
    device->send_to_all(video(fits_both));
    device->send_to_all(system_header(25));
    device->send_to_all(video(fits_both));
    const auto frames = seen.wait_for(4);
    EXPECT_EQ(frames[1].codec, Codec::h265);
    EXPECT_TRUE(frames[1].key);
    EXPECT_EQ(frames[3].codec, Codec::unknown);
}

TEST_F(Frames, ArriveOnTheClockOfTheLayer)
{
    log_in_with_handler();
    const auto before_it = zu::Clock::now();
    device->send_to_all(audio());
    device->send_to_all(audio());
    const auto frames = seen.wait_for(2);
    EXPECT_GE(frames[0].arrived, before_it);
    EXPECT_GE(frames[1].arrived, frames[0].arrived);
    EXPECT_LE(frames[1].arrived, zu::Clock::now());
}

TEST_F(Frames, DescribeTheStream)
{
    const zu::Camera& its = log_in_with_handler();
    EXPECT_FALSE(its.description());
    device->send_to_all(system_header(25, 1920, 1080));
    device->send_to_all(stream_data("FSYS", pattern(23))); // too short
    const auto frames = seen.wait_for(2);
    EXPECT_FALSE(frames[1].view().description());
    const auto description = its.description();
    ASSERT_TRUE(description);
    EXPECT_EQ(description->width, 1920U);
    EXPECT_EQ(description->height, 1080U);
    EXPECT_EQ(description->audio_format, 0U);
    EXPECT_EQ(description->stream, 0U);
    EXPECT_EQ(description->frame_rate, 25U);
    EXPECT_EQ(description->bit_rate, 2048U);
    EXPECT_EQ(frames[0].view().description()->width, 1920U);
}

TEST_F(Frames, AreCounted)
{
    const zu::Camera& its = log_in_with_handler();
    device->send_to_all(video(h264_key));
    device->send_to_all(video(h264_delta));
    device->send_to_all(audio());
    device->send_to_all(system_header(25));
    seen.wait_for(4);
    const zu::Stats stats = its.stats();
    EXPECT_EQ(stats.version, 1U);
    EXPECT_EQ(stats.size, sizeof(zu::Stats));
    EXPECT_EQ(stats.frames, 4U);
    EXPECT_EQ(stats.video_frames, 2U);
    EXPECT_EQ(stats.key_frames, 1U);
    EXPECT_EQ(stats.audio_frames, 1U);
    EXPECT_EQ(stats.bytes, h264_key.size() + h264_delta.size() + 4 + 24);
    EXPECT_EQ(stats.taken, 0U) << "there is no queue";
}

TEST_F(Frames, GoIntoTheQueueWithoutAHandler)
{
    zu::Camera& its = log_in();
    device->send_to_all(video(h264_key));
    device->send_to_all(video(h264_delta));
    const auto first = its.next_frame(long_enough);
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->key);
    EXPECT_EQ(first->bytes, h264_key);
    const auto second = its.next_frame(long_enough);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->number, 2U);
    EXPECT_FALSE(its.next_frame(milliseconds(0)));
    EXPECT_EQ(its.stats().taken, 2U);
}

TEST_F(Frames, ThatDoNotComeAreNotWaitedForForEver)
{
    zu::Camera& its = log_in();
    const auto begin = zu::Clock::now();
    EXPECT_FALSE(its.next_frame(milliseconds(100)));
    EXPECT_GE(zu::Clock::now() - begin, milliseconds(100));
    EXPECT_FALSE(its.next_frame(milliseconds(-5)));
    EXPECT_FALSE(its.next_frame(milliseconds::min()));
}

TEST_F(Frames, ThatGoToAHandlerAreNotInTheQueue)
{
    zu::Camera& its = log_in_with_handler();
    device->send_to_all(audio());
    seen.wait_for(1);
    EXPECT_FALSE(its.next_frame(std::chrono::hours(1))) << "at once";
}

TEST_F(Frames, ThatDoNotFitAreToldAndCounted)
{
    zu::CameraOptions options;
    options.queue.frames = 2;
    zu::Camera& its = log_in(std::move(options));
    for (int i = 0; i < 6; i++) {
        device->send_to_all(video(i == 0 ? h264_key : h264_delta));
    }
    EXPECT_TRUE(eventually([&] { return its.stats().frames == 6; }));
    EXPECT_TRUE(events.wait_for(zu::EventKind::frames_dropped));
    EXPECT_TRUE(eventually([&] { return its.stats().dropped_awaiting_key == 3; }));
    EXPECT_EQ(its.stats().dropped_queue_full, 1U);
    EXPECT_EQ(events.count(zu::EventKind::frames_dropped), 1);
}

TEST_F(Frames, CanNotBeAskedAboutFromInsideTheirHandler)
{
    std::atomic<zu::Camera*> its{nullptr};
    std::error_code inside;
    std::atomic<bool> over{false};
    zu::CameraOptions options;
    options.on_frame = [&](const zu::FrameView&) {
        inside = its.load()->ask_for_key_frame();
        over = true;
    };
    its = &log_in(std::move(options));
    device->send_to_all(audio());
    EXPECT_TRUE(eventually([&] { return over.load(); }));
    EXPECT_EQ(inside, zu::Errc::would_wait_for_self);
    EXPECT_EQ(asked(key_frame_message), 0U);
    EXPECT_EQ(its.load()->stats().requests_failed, 1U);
    camera.reset(); // before what its handler uses
}

TEST_F(Frames, LetTheirHandlerAskAnotherCamera)
{
    zu::Camera other(address_of(device->port()));
    std::error_code inside = zu::Errc::busy;
    std::atomic<bool> over{false};
    zu::CameraOptions options;
    options.on_frame = [&](const zu::FrameView&) {
        inside = other.ask_for_key_frame();
        over = true;
    };
    zu::Camera& its = log_in(std::move(options));
    EXPECT_TRUE(eventually([&] { return device->links_open() == 2; }));
    device->send_to_all(audio());
    EXPECT_TRUE(eventually([&] { return over.load(); }));
    EXPECT_EQ(inside, std::error_code());
    EXPECT_EQ(its.ask_for_key_frame(), std::error_code()) << "and is not taken for it afterwards";
    camera.reset(); // before what its handler uses
}

} // namespace
