// A stream while its settings change and while it begins: no change stops it, no setting is taken
// that its encoder cannot do, and every viewer is told first what follows. Times are only asserted
// by what must have come before patience ends.
#include "camera_client.h"
#include "camera_requests.h"
#include "eventually.h"
#include "h264_decoder.h"
#include "virtual_camera/camera.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace
{

using namespace tools;

constexpr std::uint32_t done = 0;
constexpr std::uint32_t out_of_range = 2;
constexpr std::size_t protocol = 2, bitrate = 3, rate = 4, interval = 5, constant = 6, width = 9,
                      height = 10;

using changes = std::vector<std::pair<std::size_t, std::uint32_t>>;

zucam::camera_options small()
{
    zucam::camera_options options;
    options.width = 160;
    options.height = 90;
    options.gop = 10000;
    return options;
}

zucam::camera_options numbered(unsigned fps, std::size_t size)
{
    zucam::camera_options options;
    options.numbered_size = size;
    options.fps = fps;
    return options;
}

std::uint32_t change(camera_client& client, std::uint32_t stream, const changes& wanted)
{
    bytes record = read_setting(client, video_setting, {0, stream}).record;
    for (const auto& [index, value] : wanted) {
        const bytes word = record_of({value});
        std::copy_n(word.begin(), 4, record.begin() + static_cast<std::ptrdiff_t>(4 * index));
    }
    return write_setting(client, video_setting, record);
}

bytes unit_of(const received& message)
{
    const bytes body = message.payload();
    return body.size() < 4 ? bytes{} : bytes(body.begin() + 4, body.end());
}

AVCodecID decoder_of(std::uint32_t codec)
{
    return codec == 0 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
}

// Whether a frame comes that can be decoded by itself and has this size. Others may come before it.
bool shows(camera_client& client, std::uint32_t codec, std::uint32_t w, std::uint32_t h)
{
    for (int i = 0; i < 200; ++i) {
        const received frame = client.next_with_flag("KTVF");
        if (!frame) {
            return false;
        }
        try {
            h264_decoder decoder(decoder_of(codec));
            const picture_size size = decoder.decode(unit_of(frame));
            if (size.width == static_cast<int>(w) && size.height == static_cast<int>(h)) {
                return true;
            }
        } catch (const std::runtime_error&) { // it leans on frames before it
        }
    }
    return false;
}

TEST(CameraChanges, ManyChangesDoNotPutTheNextFrameOff)
{
    const zucam::camera camera(numbered(1, 100));
    camera_client viewer(camera.port());
    camera_client client(camera.port());
    viewer.send_start(0);
    ASSERT_TRUE(viewer.next_with_flag("KTVF"));
    constexpr std::uint32_t many = 2 * static_cast<std::uint32_t>(patience.count());
    for (std::uint32_t i = 1; i <= many; ++i) {
        ASSERT_EQ(change(client, 0, {{bitrate, 1000 + i}}), done);
        ASSERT_TRUE(viewer.next_with_flag("FSYS"));
        ASSERT_TRUE(viewer.next_with_flag("KTVF"));
    }
    EXPECT_TRUE(viewer.next_with_flag("KTVF")) << "each change has put it off by a second";
}

// Every setting that is taken shows; one that is not leaves the stream as it was.
void expect_taken_or_refused(camera_client& client, const changes& wanted)
{
    const std::uint32_t codec = wanted[0].second;
    const bytes before = read_setting(client, video_setting, {}).record;
    const std::uint32_t code = change(client, 0, wanted);
    if (code == done) {
        EXPECT_TRUE(shows(client, codec, wanted[1].second, wanted[2].second));
    } else {
        EXPECT_EQ(code, out_of_range);
        EXPECT_EQ(read_setting(client, video_setting, {}).record, before);
    }
}

void try_corners(std::uint32_t codec)
{
    const zucam::camera camera(small());
    camera_client client(camera.port());
    client.send_start(0);
    for (const auto& [w, h] : {std::pair{16U, 16U}, {1920U, 16U}, {16U, 1088U}, {1920U, 1088U}}) {
        for (const std::uint32_t kbit : {32U, 50000U}) {
            for (const std::uint32_t fps : {1U, 120U}) {
                for (const std::uint32_t is_constant : {0U, 1U}) {
                    SCOPED_TRACE(testing::Message() << w << "x" << h << " " << fps << "/s " << kbit
                                                    << " kbit/s " << is_constant);
                    expect_taken_or_refused(client, {{protocol, codec},
                                                     {width, w},
                                                     {height, h},
                                                     {bitrate, kbit},
                                                     {rate, fps},
                                                     {constant, is_constant}});
                    ASSERT_FALSE(testing::Test::HasFailure());
                }
            }
        }
    }
}

TEST(CameraChanges, TheCornersOfWhatIsAllowedShowOrAreRefusedInH264)
{
    try_corners(0);
}

TEST(CameraChanges, TheCornersOfWhatIsAllowedShowOrAreRefusedInH265)
{
    try_corners(1);
}

TEST(CameraChanges, UsualPicturesHaveAnyRateInH265)
{
    zucam::camera_options options = small();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_EQ(change(client, 0, {{width, 1920}, {height, 1080}, {rate, 120}, {bitrate, 4000}}),
              done);
    EXPECT_TRUE(shows(client, 1, 1920, 1080));
    for (const std::uint32_t kbit : {40000U, 50000U}) {
        ASSERT_EQ(
            change(client, 0,
                   {{width, 1280}, {height, 720}, {rate, 25}, {bitrate, kbit}, {constant, 0}}),
            done);
        EXPECT_TRUE(shows(client, 1, 1280, 720));
    }
}

TEST(CameraChanges, TooMuchForTheEncoderIsRefusedAndTheStreamGoesOn)
{
    zucam::camera_options options = small();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    const changes narrow = {{width, 16}, {height, 16}};
    EXPECT_EQ(change(client, 0, {narrow[0], narrow[1], {bitrate, 50000}, {constant, 0}}),
              out_of_range);
    ASSERT_EQ(change(client, 0, {{interval, 100}}), done);
    EXPECT_TRUE(shows(client, 1, 160, 90));
}

TEST(CameraChanges, TheLargestPictureOfTheOptionsShowsInH265)
{
    zucam::camera_options options = small();
    options.codec = zucam::codec_kind::h265;
    options.width = 4096;
    options.height = 2304;
    options.fps = 2;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_TRUE(shows(client, 1, 4096, 2304));
}

// Their coding tree units differ in size.
TEST(CameraChanges, NarrowAndWideH265StreamsRunSideBySide)
{
    zucam::camera_options options = small();
    options.codec = zucam::codec_kind::h265;
    options.width = 640;
    options.height = 360;
    const zucam::camera camera(options);
    camera_client wide(camera.port());
    camera_client narrow(camera.port());
    ASSERT_EQ(change(narrow, 1, {{width, 320}, {height, 16}}), done);
    wide.send_start(0);
    narrow.send_start(1);
    h264_decoder wide_decoder(AV_CODEC_ID_HEVC);
    h264_decoder narrow_decoder(AV_CODEC_ID_HEVC);
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(wide_decoder.decode(unit_of(wide.next_with_flag("KTVF"))).height, 360);
        EXPECT_EQ(narrow_decoder.decode(unit_of(narrow.next_with_flag("KTVF"))).height, 16);
    }
}

TEST(CameraChanges, AViewerWhoseLinkIsFullGetsTheSystemHeaderLater)
{
    zucam::camera_options options = numbered(100, 100000);
    options.backlog_limit = 1; // one message waits, whatever its size
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    std::uint64_t sent = 0;
    std::uint64_t dropped = 0;
    ASSERT_TRUE(support::eventually([&] {
        const zucam::camera_counters now = camera.counters();
        dropped = now.messages_sent == sent ? dropped : now.messages_dropped;
        sent = now.messages_sent;
        return now.messages_dropped > dropped + 30;
    })) << "the link takes no more";

    client.send_start(1);
    ASSERT_TRUE(support::eventually([&] { return camera.received(0x1001) == 2; }));
    bool told = false;
    for (int i = 0; i < 3000 && !told; ++i) {
        const received message = client.next();
        ASSERT_TRUE(message);
        told = message.flag() == "FSYS" && message.word(28) == 1;
    }
    EXPECT_TRUE(told);
}

TEST(CameraChanges, NumberedFramesAreNeverDescribedAsHavingSound)
{
    const zucam::camera camera(numbered(50, 600));
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_EQ(client.next_with_flag("FSYS").word(24), 0U);
    const bytes audio = read_setting(client, audio_setting, {}).record;
    EXPECT_EQ(word_of(audio, 2), 0U) << "switched off";
    EXPECT_EQ(write_setting(client, audio_setting, record_of({0, 0, 1, 2, 8000, 64, 50})), done);
    ASSERT_EQ(change(client, 0, {{rate, 100}}), done);
    EXPECT_EQ(client.next_with_flag("FSYS").word(24), 0U);
}

} // namespace
