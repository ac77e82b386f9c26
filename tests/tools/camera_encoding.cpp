// What settings do to a running stream, as a viewer sees it: every change arrives
// without a new start, with a system header where it says something new, and what
// is decoded has the new measures. Small pictures at a high rate.
#include "camera_client.h"
#include "camera_requests.h"
#include "h264_decoder.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/stamp.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <stdexcept>

namespace
{

using namespace tools;

constexpr std::size_t bitrate = 3, rate = 4, interval = 5, protocol = 2, width = 9, height = 10;
constexpr std::size_t sound_on = 2, sample_rate = 4, volume = 6;

zucam::camera_options quick()
{
    zucam::camera_options options;
    options.width = 320;
    options.height = 180;
    options.fps = 50;
    options.source = "testsrc2=rate=50,noise=alls=40:allf=t"; // costs as many bits as it may
    return options;
}

// So none of the old measures is under way when a change has brought one.
zucam::camera_options key_frames_by_change_alone()
{
    zucam::camera_options options = quick();
    options.gop = 10000;
    return options;
}

// Reads a stream's setting, changes words of it, writes it back.
std::uint32_t change(camera_client& client, std::uint32_t command,
                     const std::vector<std::pair<std::size_t, std::uint32_t>>& changes)
{
    bytes record = read_setting(client, command, {}).record;
    for (const auto& [index, value] : changes) {
        const bytes word = record_of({value});
        std::copy_n(word.begin(), 4, record.begin() + static_cast<std::ptrdiff_t>(4 * index));
    }
    return write_setting(client, command, record);
}

bytes unit_of(const received& message)
{
    const bytes body = message.payload();
    return body.size() < 4 ? bytes{} : bytes(body.begin() + 4, body.end());
}

// Of so many frames together; throws when fewer come.
std::size_t size_of_frames(camera_client& client, int count)
{
    std::size_t sum = 0;
    for (int i = 0; i < count; ++i) {
        const received frame = client.next_with_flag("KTVF");
        if (!frame) {
            throw std::runtime_error("a frame is missing");
        }
        sum += frame.whole.size();
    }
    return sum;
}

TEST(CameraEncoding, ABitRateChangesTheSizeOfFrames)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    (void)size_of_frames(client, 50); // the rate control settles
    const std::size_t before = size_of_frames(client, 50);
    ASSERT_EQ(change(client, video_setting, {{bitrate, 200}}), 0U);
    EXPECT_EQ(client.next_with_flag("FSYS").word(12 + 24), 200U);
    (void)size_of_frames(client, 50);
    EXPECT_LT(size_of_frames(client, 50), before / 3);
}

TEST(CameraEncoding, ASizeIsAnnouncedAndDecodedFromTheNextFrameOn)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    ASSERT_EQ(change(client, video_setting, {{width, 480}, {height, 270}}), 0U);
    const received header = client.next_with_flag("FSYS");
    EXPECT_EQ(header.word(16), 480U);
    EXPECT_EQ(header.word(20), 270U);
    h264_decoder decoder;
    for (int i = 0; i < 20; ++i) {
        const received frame = client.next_with_flag("KTVF");
        EXPECT_EQ(is_key_frame(frame), i == 0);
        const picture_size size = decoder.decode(unit_of(frame));
        EXPECT_EQ(size.width, 480);
        EXPECT_EQ(size.height, 270);
    }
}

TEST(CameraEncoding, TheSmallestAndAnOddShapeWorkInBothCodecs)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    for (const std::uint32_t codec : {0U, 1U}) {
        for (const auto& [w, h] : {std::pair{16, 16}, std::pair{1920, 16}, std::pair{50, 1088}}) {
            ASSERT_EQ(change(client, video_setting,
                             {{protocol, codec},
                              {width, static_cast<std::uint32_t>(w)},
                              {height, static_cast<std::uint32_t>(h)}}),
                      0U);
            ASSERT_TRUE(client.next_with_flag("FSYS"));
            h264_decoder decoder(codec == 0 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC);
            const picture_size size = decoder.decode(unit_of(client.next_with_flag("KTVF")));
            EXPECT_EQ(size.width, w);
            EXPECT_EQ(size.height, h);
        }
    }
}

TEST(CameraEncoding, AFrameRateIsAnnouncedAndTheSoundKeepsStep)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_EQ(client.next_with_flag("KTAF").whole.size(), 12 + 4 + 160U);
    ASSERT_EQ(change(client, video_setting, {{rate, 20}}), 0U);
    EXPECT_EQ(client.next_with_flag("FSYS").word(32), 20U);
    EXPECT_EQ(client.next_with_flag("KTAF").whole.size(), 12 + 4 + 400U);
}

TEST(CameraEncoding, AStreamOfOneFrameASecondTakesAHigherRate)
{
    zucam::camera_options options = quick();
    options.width = 160;
    options.height = 90;
    options.fps = 1;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    ASSERT_EQ(change(client, video_setting, {{rate, 100}}), 0U);
    const std::uint64_t asked = zucam::clock_us();
    (void)size_of_frames(client, 60);
    EXPECT_LT(zucam::clock_us() - asked, 45000000U) << "at the old rate it takes a minute";
}

TEST(CameraEncoding, AKeyFrameIntervalTakesEffect)
{
    const zucam::camera camera(key_frames_by_change_alone());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    ASSERT_EQ(change(client, video_setting, {{interval, 5}}), 0U);
    received frame = client.next_with_flag("KTVF");
    while (frame && !is_key_frame(frame)) {
        frame = client.next_with_flag("KTVF");
    }
    for (int i = 1; i <= 20; ++i) {
        EXPECT_EQ(is_key_frame(client.next_with_flag("KTVF")), i % 5 == 0) << i;
    }
}

TEST(CameraEncoding, TheEncodeLevelSelectsTheProfile)
{
    const zucam::camera camera(key_frames_by_change_alone());
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_EQ(client.next_with_flag("EXVC").payload().at(4 + 5), 66) << "baseline to begin with";
    const std::vector<int> profiles = {66, 77, 100};
    for (const std::uint32_t level : {2U, 1U, 0U}) {
        ASSERT_EQ(write_setting(client, level_setting, record_of({level})), 0U);
        EXPECT_EQ(client.next_with_flag("EXVC").payload().at(4 + 5), profiles[level]);
    }
}

TEST(CameraEncoding, TheCodecCanBeH265WithItsStampAndParameterSets)
{
    zucam::camera_options options = quick();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(0);
    EXPECT_EQ(word_of(read_setting(client, video_setting, {}).record, protocol), 1U);
    const bytes sets = client.next_with_flag("EXVC").payload();
    EXPECT_EQ(sets.at(4 + 4), 0x40) << "a VPS";
    h264_decoder decoder(AV_CODEC_ID_HEVC);
    std::uint64_t sequence = 0;
    for (int i = 0; i < 30; ++i) {
        const bytes unit = unit_of(client.next_with_flag("KTVF"));
        EXPECT_EQ(decoder.decode(unit).width, 320);
        const auto stamp = zucam::find_stamp(unit.data(), unit.size());
        ASSERT_TRUE(stamp);
        EXPECT_TRUE(i == 0 || stamp->sequence == sequence + 1);
        sequence = stamp->sequence;
    }
}

TEST(CameraEncoding, SoundCanBeSwitchedOffAndOn)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTAF"));
    ASSERT_EQ(change(client, audio_setting, {{sound_on, 0}}), 0U);
    EXPECT_EQ(client.next_with_flag("FSYS").word(24), 0U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(client.next().flag(), "KTAF");
    }
    ASSERT_EQ(change(client, audio_setting, {{sound_on, 1}}), 0U);
    EXPECT_EQ(client.next_with_flag("FSYS").word(24), 2U);
    EXPECT_TRUE(client.next_with_flag("KTAF"));
}

TEST(CameraEncoding, ASampleRateDoublesTheBytesOfTheSound)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTAF"));
    ASSERT_EQ(change(client, audio_setting, {{sample_rate, 16000}}), 0U);
    std::size_t size = 0;
    for (int i = 0; i < 50 && size != 12 + 4 + 320; ++i) {
        size = client.next_with_flag("KTAF").whole.size();
    }
    EXPECT_EQ(size, 12 + 4 + 320U);
}

TEST(CameraEncoding, AVolumeOfNothingIsSilence)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTAF"));
    ASSERT_EQ(change(client, audio_setting, {{volume, 0}}), 0U);
    bool silent = false;
    for (int i = 0; i < 50 && !silent; ++i) {
        const bytes sound = unit_of(client.next_with_flag("KTAF"));
        silent = std::all_of(sound.begin(), sound.end(), [](int byte) { return byte == 0xff; });
    }
    EXPECT_TRUE(silent);
}

} // namespace
