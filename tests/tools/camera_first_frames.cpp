// The example of the C++ layer against the virtual camera: the program that is built, run as a
// process of its own, and judged by its lines and its exit status.
#include "camera_client.h"
#include "program_runner.h"
#include "virtual_camera/camera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::HasSubstr;
using tools::program;

std::vector<std::string> to(std::uint16_t port)
{
    return {"127.0.0.1", std::to_string(port), "admin", "secret"};
}

TEST(FirstFrames, TakesKeyFramesAndReadsASetting)
{
    zucam::camera_options options;
    options.width = 320;
    options.height = 180;
    const zucam::camera camera(options);
    // It waits two seconds for a frame, so the encoder has begun before it comes.
    tools::camera_client other(camera.port());
    other.send_start(0);
    ASSERT_TRUE(other.next_with_flag("KTVF"));
    program run(FIRST_FRAMES, to(camera.port()));
    EXPECT_EQ(run.exit_status(), 0) << run.errors();
    EXPECT_THAT(run.output(), HasSubstr("media flowing\n"));
    EXPECT_THAT(run.output(), HasSubstr("key frame "));
    EXPECT_THAT(run.output(), HasSubstr("320 x 180, "));
    EXPECT_THAT(run.output(), HasSubstr("link up\n"));
}

TEST(FirstFrames, TellsWhenNobodyIsThere)
{
    program run(FIRST_FRAMES, to(1));
    EXPECT_EQ(run.exit_status(), 3);
    EXPECT_EQ(run.errors(), "first_frames: log in: cannot connect\n");
}

TEST(FirstFrames, TellsHowToCallIt)
{
    program run(FIRST_FRAMES, {"127.0.0.1"});
    EXPECT_EQ(run.exit_status(), 2);
    EXPECT_EQ(run.errors(), "usage: first_frames HOST PORT USER PASSWORD\n");
}

} // namespace
