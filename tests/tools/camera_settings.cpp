// The camera's store of settings: what it starts with, what it keeps, what it
// refuses. Numbered frames, so that no encoder runs; what settings do to a picture
// is tested elsewhere. Records are compared whole, byte for byte.
#include "camera_client.h"
#include "camera_requests.h"
#include "virtual_camera/camera.h"

#include <gtest/gtest.h>

namespace
{

using namespace tools;

constexpr std::uint32_t done = 0;
constexpr std::uint32_t out_of_range = 2;

zucam::camera_options numbered()
{
    zucam::camera_options options;
    options.numbered_size = 600;
    return options;
}

// Every byte different from its neighbours, none of them zero.
bytes patterned()
{
    bytes record;
    for (std::size_t i = 0; i < setting_size; ++i) {
        record.push_back(static_cast<std::uint8_t>(1 + i % 251));
    }
    return record;
}

const words good_video = {7, 2, 0, 777, 30, 60, 0, 80, 9, 480, 272};
const words good_audio = {7, 2, 1, 1, 16000, 64, 33};
const words good_presets = {2, 9, 0xfffffc18, 1000, 4000, 77, 3, 5, 0xfffffff9, 1000, 0xffffffff};

struct written {
    std::uint32_t command;
    words record;
    words selector;
};

const std::vector<written> known = {{video_setting, good_video, {0, 2}},
                                    {audio_setting, good_audio, {0, 2}},
                                    {level_setting, {2}, {}},
                                    {qp_setting, {2, 40}, {2}},
                                    {preset_setting, good_presets, {}}};

void expect_kept(camera_client& client, const written& wanted)
{
    const setting found = read_setting(client, wanted.command, wanted.selector);
    EXPECT_EQ(found.code, done);
    EXPECT_EQ(found.record, record_of(wanted.record)) << std::hex << wanted.command;
}

TEST(CameraSettings, ItStartsWithSensibleValues)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    const std::vector<written> wanted = {
        {video_setting, {0, 1, 0, 1024, 25, 50, 1, 50, 0, 640, 360}, {0, 1}},
        {audio_setting, {0, 1, 0, 2, 8000, 64, 50}, {0, 1}},
        {level_setting, {0}, {}},
        {qp_setting, {1, 26}, {1}},
        {preset_setting, {0}, {}}};
    for (const written& each : wanted) {
        expect_kept(client, each);
    }
}

TEST(CameraSettings, TheFiveRecordsMakeTheRoundTripByteForByte)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    for (const written& each : known) {
        EXPECT_EQ(write_setting(client, each.command, record_of(each.record)), done);
        expect_kept(client, each);
    }
}

TEST(CameraSettings, BytesBehindARecordAreKeptToo)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    for (const written& each : known) {
        bytes record = record_of(each.record);
        record.back() = 0xa5;
        EXPECT_EQ(write_setting(client, each.command, record), done);
        EXPECT_EQ(read_setting(client, each.command, each.selector).record, record);
    }
}

TEST(CameraSettings, AnyOtherCommandIsReadAsZerosUntilItWasSet)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    for (const std::uint32_t command : {0U, 0x1046U, 0x2222U, 0xffffffffU}) {
        EXPECT_EQ(read_setting(client, command, {}).record, record_of({}));
        EXPECT_EQ(write_setting(client, command, patterned()), done);
        const setting found = read_setting(client, command, {});
        EXPECT_EQ(found.code, done);
        EXPECT_EQ(found.record, patterned());
    }
}

TEST(CameraSettings, EachStreamHasItsOwnAndAnotherConnectionSeesThem)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    camera_client other(camera.port());
    for (std::uint32_t stream = 0; stream < 4; ++stream) {
        words video = good_video;
        video[1] = stream;
        video[3] = 500 + stream;
        EXPECT_EQ(write_setting(client, video_setting, record_of(video)), done);
        EXPECT_EQ(write_setting(client, qp_setting, record_of({stream, 20 + stream})), done);
    }
    for (std::uint32_t stream = 0; stream < 4; ++stream) {
        EXPECT_EQ(word_of(read_setting(other, video_setting, {0, stream}).record, 3), 500 + stream);
        EXPECT_EQ(word_of(read_setting(other, qp_setting, {stream}).record, 1), 20 + stream);
    }
}

TEST(CameraSettings, AStreamThatIsNotThereHasNoSettings)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    words video = good_video;
    video[1] = 4;
    EXPECT_EQ(write_setting(client, video_setting, record_of(video)), out_of_range);
    EXPECT_EQ(read_setting(client, video_setting, video).code, out_of_range);
    EXPECT_EQ(read_setting(client, audio_setting, {0, 4}).code, out_of_range);
    EXPECT_EQ(read_setting(client, qp_setting, {0xffffffff}).code, out_of_range);
}

struct wrong_word {
    std::size_t index;
    std::uint32_t value;
};

// Each wrong value in a record that is good, and different, otherwise.
void expect_refused_whole(std::uint32_t command, const words& good, const words& selector,
                          const std::vector<wrong_word>& wrong)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    const bytes before = read_setting(client, command, selector).record;
    for (const wrong_word& each : wrong) {
        words record = good;
        record[each.index] = each.value;
        EXPECT_EQ(write_setting(client, command, record_of(record)), out_of_range)
            << each.index << " = " << each.value;
        EXPECT_EQ(read_setting(client, command, selector).record, before);
    }
    EXPECT_EQ(write_setting(client, command, record_of(good)), done);
}

TEST(CameraSettings, AVideoSettingOutOfRangeIsRefusedWhole)
{
    expect_refused_whole(video_setting, good_video, {0, 2},
                         {{2, 2},
                          {3, 31},
                          {3, 50001},
                          {4, 0},
                          {4, 121},
                          {5, 0},
                          {5, 10001},
                          {6, 2},
                          {7, 101},
                          {9, 14},
                          {9, 1922},
                          {9, 321},
                          {10, 14},
                          {10, 1090},
                          {10, 0xffffffff}});
}

TEST(CameraSettings, AnAudioSettingOutOfRangeIsRefusedWhole)
{
    expect_refused_whole(audio_setting, good_audio, {0, 2},
                         {{2, 2}, {3, 0}, {3, 3}, {4, 0}, {4, 8001}, {4, 44100}, {6, 101}});
}

TEST(CameraSettings, AnEncodeLevelOrQuantiserOutOfRangeIsRefused)
{
    expect_refused_whole(level_setting, {1}, {}, {{0, 3}, {0, 0xffffffff}});
    expect_refused_whole(qp_setting, {2, 51}, {2}, {{1, 52}, {0, 4}});
}

TEST(CameraSettings, APresetListOutOfRangeIsRefusedWhole)
{
    expect_refused_whole(preset_setting, good_presets, {},
                         {{0, 101},
                          {0, 0xffffffff},
                          {1, 0},
                          {1, 101},
                          {1, 3},
                          {2, 0xfffffc17},
                          {3, 1001},
                          {4, 999},
                          {4, 4001}});
}

TEST(CameraSettings, ARequestTooShortForACommandIsRefused)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    client.send(from_hex("61100000 04000000 39300000 51100000"));
    EXPECT_EQ(client.next().whole, from_hex("62100000 04000000 39300000 02000000"));
}

TEST(CameraSettings, TheStoreForUnknownCommandsHasAnEnd)
{
    const zucam::camera camera(numbered());
    camera_client client(camera.port());
    std::uint32_t code = done;
    std::uint32_t command = 0x10000;
    while (code == done && command < 0x20000) {
        code = write_setting(client, ++command, record_of({1}));
    }
    EXPECT_EQ(code, 3U) << "busy";
    EXPECT_EQ(write_setting(client, 0x10001, record_of({2})), done) << "what is known can change";
    EXPECT_EQ(read_setting(client, command, {}).record, record_of({}));
}

} // namespace
