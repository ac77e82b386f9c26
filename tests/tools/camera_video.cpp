// The real picture and sound: access units decode, are stamped, and key
// frames come when they should. Small pictures at a high rate, so that a
// second shows many of them and a busy machine keeps up. The decoder is
// told to take every defect for an error.
#include "camera_client.h"
#include "eventually.h"
#include "h264_decoder.h"
#include "scratch.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/stamp.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>

namespace
{

using tools::bytes;
using tools::camera_client;
using tools::from_hex;
using tools::is_key_frame;
using tools::received;

zucam::camera_options quick()
{
    zucam::camera_options options;
    options.width = 640;
    options.height = 360;
    options.fps = 100;
    options.gop = 40;
    return options;
}

bytes annexb(const received& message)
{
    const bytes body = message.payload();
    return body.size() < 4 ? bytes{} : bytes(body.begin() + 4, body.end());
}

std::optional<zucam::stamp> stamp_of(const received& message)
{
    const bytes unit = annexb(message);
    return zucam::find_stamp(unit.data(), unit.size());
}

TEST(CameraVideo, TheOrderIsAnswerSystemHeaderParameterSetsKeyFrameSound)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(1);
    EXPECT_EQ(client.next().type(), 0x1002U);
    EXPECT_EQ(client.next().whole, from_hex("00110000 1c000000 00000000 46535953 40010000 b4000000"
                                            "02000000 01000000 64000000 00040000"));
    EXPECT_EQ(client.next().flag(), "EXVC");
    EXPECT_TRUE(is_key_frame(client.next()));
    EXPECT_EQ(client.next().flag(), "KTAF");
    EXPECT_EQ(client.next().flag(), "KTVF");
}

TEST(CameraVideo, EveryAccessUnitDecodesAndTheirStampsCountOneByOne)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(1);
    tools::h264_decoder decoder;
    std::uint64_t earlier_us = 0;
    for (std::uint64_t sequence = 0; sequence < 100; ++sequence) {
        const received frame = client.next_with_flag("KTVF");
        const tools::picture_size size = decoder.decode(annexb(frame));
        EXPECT_EQ(size.width, 320);
        EXPECT_EQ(size.height, 180);
        const auto stamp = stamp_of(frame);
        ASSERT_TRUE(stamp);
        EXPECT_EQ(stamp->sequence, sequence);
        EXPECT_EQ(stamp->stream, 1U);
        EXPECT_GE(stamp->time_us, earlier_us);
        EXPECT_LE(stamp->time_us, zucam::clock_us());
        earlier_us = stamp->time_us;
    }
}

TEST(CameraVideo, AllFourStreamsHaveTheirSizes)
{
    zucam::camera_options options; // as the camera is by default
    const zucam::camera camera(options);
    const int widths[] = {1280, 640, 320, 160};
    const int heights[] = {720, 360, 180, 90};
    for (std::uint8_t stream = 0; stream < 4; ++stream) {
        camera_client client(camera.port());
        client.send_start(stream);
        const received header = client.next_with_flag("FSYS");
        EXPECT_EQ(header.word(16), static_cast<std::uint32_t>(widths[stream]));
        tools::h264_decoder decoder;
        const tools::picture_size size = decoder.decode(annexb(client.next_with_flag("KTVF")));
        EXPECT_EQ(size.width, widths[stream]);
        EXPECT_EQ(size.height, heights[stream]);
    }
}

TEST(CameraVideo, KeyFramesComeEveryGopWithTheirParameterSetsInFront)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(3);
    std::vector<int> keys;
    for (int frame = 0; frame < 100;) {
        const received message = client.next();
        ASSERT_TRUE(message);
        if (message.flag() == "EXVC") {
            EXPECT_EQ(tools::nal_types(message.payload()), (std::vector<unsigned>{7, 8}));
            const received key = client.next();
            EXPECT_TRUE(is_key_frame(key));
            const bytes sets = annexb(message);
            const bytes unit = annexb(key);
            EXPECT_TRUE(std::equal(sets.begin(), sets.end(), unit.begin())) << "repeated in it";
            keys.push_back(frame++);
        } else if (message.flag() == "KTVF") {
            EXPECT_FALSE(is_key_frame(message));
            ++frame;
        }
    }
    EXPECT_EQ(keys, (std::vector<int>{0, 40, 80}));
}

// The frame that is being encoded when the request comes may still go out in front of it.
TEST(CameraVideo, AKeyFrameRequestBringsAKeyFrameAtTheNextFrame)
{
    zucam::camera_options options = quick();
    options.gop = 10000;
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(3);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(client.next_with_flag("KTVF"));
    }
    client.send(from_hex("51100000 04000000 39300000 03000000"));
    ASSERT_TRUE(client.next_of_type(0x1052));
    const received first = client.next_with_flag("KTVF");
    EXPECT_TRUE(is_key_frame(first) || is_key_frame(client.next_with_flag("KTVF")));
}

TEST(CameraVideo, ANewViewerStartsAtAKeyFrameAndSharesTheEncoder)
{
    zucam::camera_options options = quick();
    options.gop = 10000;
    const zucam::camera camera(options);
    camera_client first(camera.port());
    first.send_start(3);
    ASSERT_TRUE(first.next_with_flag("KTVF"));
    ASSERT_TRUE(first.next_with_flag("KTVF"));

    camera_client second(camera.port());
    second.send_start(3);
    const received key = second.next_with_flag("KTVF");
    EXPECT_TRUE(is_key_frame(key));
    received same = first.next_with_flag("KTVF");
    while (same && stamp_of(same)->sequence < stamp_of(key)->sequence) {
        same = first.next_with_flag("KTVF");
    }
    EXPECT_EQ(same.whole, key.whole);
}

TEST(CameraVideo, AStreamWatchedAgainStartsAtAKeyFrameAndCountsOn)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(3);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    client.send(from_hex("11100000 08000000 00000000 03000000 01000000"));
    ASSERT_TRUE(client.next_of_type(0x1012));
    client.send_start(3);
    const received frame = client.next_with_flag("KTVF");
    EXPECT_TRUE(is_key_frame(frame));
    EXPECT_GE(stamp_of(frame)->sequence, 1U);
}

// mu-law: the byte with all bits inverted is sign, segment and steps within the segment.
int linear(std::uint8_t ulaw)
{
    const unsigned code = ~ulaw & 0xffU;
    const int magnitude = static_cast<int>((((code & 15U) << 3U) + 132U) << ((code >> 4U) & 7U));
    return (code & 0x80U) != 0 ? 132 - magnitude : magnitude - 132;
}

TEST(CameraVideo, TheSoundIsAToneOf440HertzInMuLaw)
{
    const zucam::camera camera(quick());
    camera_client client(camera.port());
    client.send_start(0);
    bytes sound;
    while (sound.size() < 4000) {
        const received message = client.next_with_flag("KTAF");
        ASSERT_TRUE(message);
        const bytes piece = annexb(message);
        EXPECT_EQ(piece.size(), 80U) << "8000 samples a second, 100 frames";
        sound.insert(sound.end(), piece.begin(), piece.end());
    }
    int loudest = 0;
    int upward = 0;
    for (std::size_t i = 1; i < 4000; ++i) {
        loudest = std::max(loudest, std::abs(linear(sound[i])));
        upward += linear(sound[i - 1]) < 0 && linear(sound[i]) >= 0 ? 1 : 0;
    }
    EXPECT_NEAR(loudest, 8000, 300);
    EXPECT_NEAR(upward, 220, 2) << "half a second";
}

TEST(CameraVideo, SoundCanBeALawOrOff)
{
    zucam::camera_options options = quick();
    options.audio = zucam::audio_kind::alaw;
    const zucam::camera alaw(options);
    camera_client client(alaw.port());
    client.send_start(3);
    EXPECT_EQ(client.next_with_flag("FSYS").word(24), 1U);
    EXPECT_EQ(annexb(client.next_with_flag("KTAF")).front(), 0xd5U) << "the tone begins at zero";

    options.audio = zucam::audio_kind::none;
    const zucam::camera mute(options);
    camera_client other(mute.port());
    other.send_start(3);
    EXPECT_EQ(other.next_with_flag("FSYS").word(24), 0U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(other.next().flag(), "KTAF");
    }
}

TEST(CameraVideo, AnyGraphIsASourceAndOneThatEndsBeginsAgain)
{
    zucam::camera_options options = quick();
    options.source = "color=red:size=100x100:duration=0.1,hue=h=90";
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(3);
    tools::h264_decoder decoder;
    for (int i = 0; i < 40; ++i) {
        ASSERT_NO_THROW(decoder.decode(annexb(client.next_with_flag("KTVF"))));
    }
}

TEST(CameraVideo, AFileIsASourceWhateverItsName)
{
    const tools::scratch files;
    const std::string name = files / "it's a, [file]:1";
    std::FILE* file = std::fopen(name.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    (void)std::fputs("P6\n64 64\n255\n", file); // a grey picture
    (void)std::fwrite(std::string(64 * 64 * 3, '\x7f').data(), 1, 64 * 64 * 3, file);
    (void)std::fclose(file);

    zucam::camera_options options = quick();
    options.source = name;
    EXPECT_NO_THROW(zucam::try_source(name, 640, 360, 25));
    const zucam::camera camera(options);
    camera_client client(camera.port());
    client.send_start(3);
    tools::h264_decoder decoder;
    for (int i = 0; i < 20; ++i) {
        ASSERT_NO_THROW(decoder.decode(annexb(client.next_with_flag("KTVF"))));
    }
}

TEST(CameraVideo, ASourceThatIsNoneIsRefusedWithOneLine)
{
    for (const char* const source : {"no such thing", "testsrc2,nullsink", "scale=2:2", ""}) {
        try {
            zucam::try_source(source, 640, 360, 25);
            ADD_FAILURE() << source;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
            EXPECT_NE(std::string(error.what()).find("testsrc2"), std::string::npos);
        }
    }
}

} // namespace
