// Pan, tilt, zoom and presets. The scene is a ramp from dark to bright, so the mean
// brightness of a decoded picture tells where the window is, and the difference of
// its ends how wide. Positions come from the list of presets. No test depends on how
// long something takes.
#include "camera_client.h"
#include "camera_requests.h"
#include "eventually.h"
#include "h264_decoder.h"
#include "virtual_camera/camera.h"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <numeric>

namespace
{

using namespace tools;
using support::eventually;

enum action : std::uint32_t { stop, up, down, left, right, zoom_in = 9, zoom_out = 10 };
enum preset_action : std::uint32_t { store = 1, go_to = 2, clear = 3 };
constexpr std::uint32_t last_action = 10;
constexpr std::uint32_t fastest = 64;

constexpr int width = 160;
constexpr int height = 90;

zucam::camera_options ramp(const std::string& brightness)
{
    zucam::camera_options options;
    options.width = width;
    options.height = height;
    options.fps = 50;
    options.source = "nullsrc=size=240x134:rate=50,geq=lum=" + brightness + ":cb=128:cr=128";
    return options;
}

zucam::camera_options plain()
{
    zucam::camera_options options;
    options.numbered_size = 100;
    return options;
}

// A viewer of stream 0 that looks at one picture after the other.
class viewer
{
public:
    explicit viewer(std::uint16_t port) : client_(port)
    {
        client_.send_start(0);
    }

    int mean()
    {
        look();
        const bytes& all = decoder_.luma();
        return std::accumulate(all.begin(), all.end(), 0) / static_cast<int>(all.size());
    }

    // From the left edge to the right one, in the middle row.
    int difference()
    {
        look();
        const std::size_t row = static_cast<std::size_t>(height / 2) * width;
        return decoder_.luma().at(row + width - 2) - decoder_.luma().at(row + 1);
    }

private:
    void look()
    {
        const bytes body = client_.next_with_flag("KTVF").payload();
        ASSERT_GT(body.size(), 4U);
        decoder_.decode(bytes(body.begin() + 4, body.end()));
    }

    camera_client client_;
    h264_decoder decoder_;
};

struct position {
    int pan;
    int tilt;
    int zoom;
};

bool operator==(const position& one, const position& other)
{
    return one.pan == other.pan && one.tilt == other.tilt && one.zoom == other.zoom;
}

std::ostream& operator<<(std::ostream& out, const position& at)
{
    return out << at.pan << ' ' << at.tilt << ' ' << at.zoom;
}

position entry(const bytes& list, std::size_t number)
{
    const std::size_t first = 1 + 5 * number;
    return {static_cast<int>(word_of(list, first + 1)), static_cast<int>(word_of(list, first + 2)),
            static_cast<int>(word_of(list, first + 3))};
}

// Where the camera looks: as preset 100, which stands alone in the list.
position where(camera_client& client)
{
    EXPECT_EQ(use_preset(client, store, 100), 0U);
    return entry(read_setting(client, preset_setting, {}).record, 0);
}

TEST(CameraPtz, APanMovesThePictureToTheEndsOfTheScene)
{
    const zucam::camera camera(ramp("X*255/W"));
    camera_client client(camera.port());
    viewer watching(camera.port());
    EXPECT_NEAR(watching.mean(), 127, 8);
    ASSERT_EQ(move(client, right, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.mean() - 170) < 8; }));
    ASSERT_EQ(move(client, left, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.mean() - 85) < 8; }));
}

TEST(CameraPtz, ATiltMovesThePictureUpAndDown)
{
    const zucam::camera camera(ramp("Y*255/H"));
    camera_client client(camera.port());
    viewer watching(camera.port());
    ASSERT_EQ(move(client, up, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.mean() - 85) < 8; }));
    ASSERT_EQ(move(client, down, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.mean() - 170) < 8; }));
}

TEST(CameraPtz, AZoomNarrowsThePictureAndGoesBack)
{
    const zucam::camera camera(ramp("X*255/W"));
    camera_client client(camera.port());
    viewer watching(camera.port());
    EXPECT_NEAR(watching.difference(), 168, 12);
    ASSERT_EQ(move(client, zoom_in, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.difference() - 42) < 12; }));
    ASSERT_EQ(move(client, zoom_out, fastest), 0U);
    EXPECT_TRUE(eventually([&] { return std::abs(watching.difference() - 168) < 12; }));
}

TEST(CameraPtz, DiagonalsMoveBothWays)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    const position ends[] = {
        {-1000, 1000, 1000}, {1000, 1000, 1000}, {-1000, -1000, 1000}, {1000, -1000, 1000}};
    for (std::uint32_t i = 0; i < 4; ++i) {
        ASSERT_EQ(move(client, 5 + i, fastest), 0U);
        EXPECT_TRUE(eventually([&] { return where(client) == ends[i]; })) << i;
    }
}

TEST(CameraPtz, AStopStopsWhateverItsSpeed)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    const auto began = std::chrono::steady_clock::now();
    ASSERT_EQ(move(client, right, 1), 0U);
    ASSERT_TRUE(eventually([&] { return where(client).pan > 2; }));
    ASSERT_EQ(move(client, stop, 0xffffffff), 0U);
    const std::chrono::duration<double> moved = std::chrono::steady_clock::now() - began;
    const position there = where(client);
    EXPECT_LE(there.pan, std::lround(16 * moved.count())) << "no faster than it was told to";
    client.send_start(0);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(client.next_with_flag("KTVF"));
    }
    EXPECT_EQ(where(client), there);
}

TEST(CameraPtz, AMoveStopsByItself)
{
    zucam::camera_options options = plain();
    options.move_limit = std::chrono::milliseconds(250);
    const zucam::camera camera(options);
    camera_client client(camera.port());
    ASSERT_EQ(move(client, left, 8), 0U);
    const position end = {-32, 0, 1000}; // a quarter of a second at 8 times 16
    EXPECT_TRUE(eventually([&] { return where(client) == end; })) << where(client);
    client.send_start(0);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(client.next_with_flag("KTVF"));
    }
    EXPECT_EQ(where(client), end);
}

TEST(CameraPtz, ASpeedOutOfRangeMovesNothing)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    for (std::uint32_t command = 1; command <= last_action; ++command) {
        for (const std::uint32_t speed : {0U, 65U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
            EXPECT_EQ(move(client, command, speed), 2U);
        }
    }
    EXPECT_EQ(where(client), (position{0, 0, 1000}));
}

TEST(CameraPtz, ACommandThatIsNoneIsUnknown)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    for (const std::uint32_t command : {11U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        EXPECT_EQ(move(client, command, 5), 1U);
    }
    for (const std::uint32_t command : {0U, 4U, 0xffffffffU}) {
        EXPECT_EQ(use_preset(client, command, 5), 1U);
    }
}

TEST(CameraPtz, PresetNumbersAreOneToAHundred)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    for (const std::uint32_t number : {0U, 101U, 0x80000000U, 0xffffffffU}) {
        EXPECT_EQ(use_preset(client, store, number), 2U);
    }
    for (std::uint32_t number = 1; number <= 100; ++number) {
        EXPECT_EQ(use_preset(client, store, number), 0U);
    }
    const bytes list = read_setting(client, preset_setting, {}).record;
    EXPECT_EQ(word_of(list, 0), 100U);
    EXPECT_EQ(word_of(list, 1 + 5 * 99), 100U);
}

TEST(CameraPtz, APresetInTheListIsOneToGoTo)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    const bytes list = record_of({1, 7, static_cast<std::uint32_t>(-500), 250, 2000, 0});
    ASSERT_EQ(write_setting(client, preset_setting, list), 0U);
    ASSERT_EQ(use_preset(client, go_to, 7), 0U);
    const position there = {-500, 250, 2000};
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(use_preset(client, store, 8), 0U);
        return entry(read_setting(client, preset_setting, {}).record, 1) == there;
    }));
}

TEST(CameraPtz, AClearedPresetLeavesTheListAndCannotBeGoneTo)
{
    const zucam::camera camera(plain());
    camera_client client(camera.port());
    for (const std::uint32_t number : {4U, 9U, 2U}) {
        ASSERT_EQ(use_preset(client, store, number), 0U);
    }
    ASSERT_EQ(use_preset(client, clear, 9), 0U);
    EXPECT_EQ(read_setting(client, preset_setting, {}).record,
              record_of({2, 4, 0, 0, 1000, 0, 2, 0, 0, 1000, 0}));
    EXPECT_EQ(use_preset(client, go_to, 9), 2U);
    EXPECT_EQ(use_preset(client, clear, 9), 0U) << "nothing to clear is no failure";
}

TEST(CameraPtz, AllStreamsShowTheSameView)
{
    const zucam::camera camera(ramp("X*255/W"));
    camera_client client(camera.port());
    client.send_start(1);
    ASSERT_EQ(move(client, right, fastest), 0U);
    h264_decoder decoder;
    EXPECT_TRUE(eventually([&] {
        const bytes body = client.next_with_flag("KTVF").payload();
        decoder.decode(bytes(body.begin() + 4, body.end()));
        const bytes& all = decoder.luma();
        const int mean = std::accumulate(all.begin(), all.end(), 0) / static_cast<int>(all.size());
        return std::abs(mean - 170) < 8;
    }));
}

} // namespace
