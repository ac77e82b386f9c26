// The smaller examples against the virtual camera: each is the program that is
// built, run as a process of its own, and judged by its lines, its exit status and
// what the camera has kept. The camera is in this process.
#include "camera_client.h"
#include "camera_requests.h"
#include "program_runner.h"
#include "virtual_camera/camera.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace tools;
using testing::HasSubstr;

zucam::camera_options plain()
{
    zucam::camera_options options;
    options.numbered_size = 100;
    return options;
}

std::vector<std::string> to_camera(const zucam::camera& camera, std::vector<std::string> more)
{
    more.insert(more.end(), {"--host", "127.0.0.1", "--port", std::to_string(camera.port())});
    return more;
}

TEST(CameraExamples, SettingsChangesTheBitRateAndReadsItBack)
{
    const zucam::camera camera(plain());
    program run(SETTINGS, to_camera(camera, {"--bitrate", "700"}));
    EXPECT_EQ(run.exit_status(), 0) << run.errors();
    EXPECT_THAT(run.output(),
                HasSubstr("read the video setting: done\n"
                          "stream 0: 1280 x 720, 25 frames/s, a key frame every 50, 2048 kbit/s\n"
                          "set the bit rate: done\n"));
    EXPECT_THAT(run.output(), HasSubstr("a key frame every 50, 700 kbit/s\n"));
    camera_client client(camera.port());
    EXPECT_EQ(word_of(read_setting(client, video_setting, {}).record, 3), 700U);
}

TEST(CameraExamples, SettingsTellsWhenTheDeviceRefuses)
{
    const zucam::camera camera(plain());
    program run(SETTINGS, to_camera(camera, {"--bitrate", "1"}));
    EXPECT_EQ(run.exit_status(), 4);
    EXPECT_EQ(run.errors(), "settings: set the bit rate: refused by the device (code 2)\n");
}

TEST(CameraExamples, PtzMovesStopsStoresAndGoesBack)
{
    const zucam::camera camera(plain());
    program run(PTZ, to_camera(camera, {}));
    EXPECT_EQ(run.exit_status(), 0) << run.errors();
    EXPECT_THAT(run.output(), HasSubstr("preset 1: pan 0, tilt 0, zoom 1000\npreset 2: pan "));
    EXPECT_THAT(run.output(), HasSubstr("go to preset 1: done\n"));
    camera_client client(camera.port());
    const bytes list = read_setting(client, preset_setting, {}).record;
    EXPECT_EQ(word_of(list, 0), 2U);
    EXPECT_GT(word_of(list, 1 + 5 + 1), 500U) << "it has panned";
}

TEST(CameraExamples, PtzStaysWhereItIsWhenAsked)
{
    const zucam::camera camera(plain());
    program run(PTZ, to_camera(camera, {"--stay"}));
    EXPECT_EQ(run.exit_status(), 0) << run.errors();
    EXPECT_EQ(run.output().find("go to"), std::string::npos);
    EXPECT_EQ(camera.received(0x1041), 2U);
}

TEST(CameraExamples, EventsShowsALossAndTheWayBack)
{
    zucam::camera camera(plain());
    program run(EVENTS, to_camera(camera, {}));
    EXPECT_THAT(run.next_line(), HasSubstr("logged in to 127.0.0.1:"));
    EXPECT_EQ(run.next_line(), "set the event callback: done");
    camera.drop_links();
    std::vector<std::string> lines; // two events close together may be told as the later one
    do {
        lines.push_back(run.next_line());
    } while (!lines.back().empty() && lines.back() != "event of 0x43210000: connected again");
    EXPECT_THAT(lines, testing::Contains("event of 0x43210000: disconnected"));
    EXPECT_EQ(lines.back(), "event of 0x43210000: connected again");
    run.send_signal(SIGINT);
    EXPECT_EQ(run.exit_status(), 0) << run.errors();
}

TEST(CameraExamples, EachTellsWhenNobodyIsThere)
{
    zucam::camera_options options = plain();
    options.initial_faults.refuse = true;
    const zucam::camera camera(options);
    for (const char* const path : {SETTINGS, PTZ, EVENTS}) {
        program run(path, to_camera(camera, {}));
        EXPECT_EQ(run.exit_status(), 3);
        EXPECT_THAT(run.errors(), HasSubstr("no login to 127.0.0.1:"));
    }
}

} // namespace
