// zucam record when it cannot go on as it began: video of another codec, a camera that does not
// answer, a reader that rests.
#include "eventually.h"
#include "zucam_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

using support::eventually;
using testing::HasSubstr;
using testing::StartsWith;
using tools::address_of;
using tools::ended;
using tools::json;
using tools::scratch;

// ---- another codec ----

class ZucamRecordChange : public testing::Test
{
protected:
    // Once the camera has sent some video.
    void change_the_codec()
    {
        ASSERT_TRUE(eventually([&] { return camera_.counters().messages_sent > 100; }));
        const ended changed =
            tools::zucam({"config", "set", address_of(camera_), "video", "protocol=1"});
        ASSERT_EQ(changed.status, 0) << changed.err;
    }

    const zucam::camera camera_{tools::small_pictures()};
    const scratch files_;
};

TEST_F(ZucamRecordChange, AFileThatCannotGoOnIsFinishedAndTold)
{
    const std::string file = files_ / "x.h264";
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera_), file, "--json"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(file) > 0; }));
    change_the_codec();
    EXPECT_EQ(recording.exit_status(), 8);
    EXPECT_THAT(recording.errors(), HasSubstr("the camera sends h265, which is no h264"));
    const std::vector<json> printed = tools::objects_in(recording.output());
    ASSERT_EQ(printed.size(), 1U);
    EXPECT_EQ(printed[0]["file"], file);
    EXPECT_EQ(printed[0]["frames"], tools::frames_in(file));
    EXPECT_EQ(tools::complaints(file), "");
}

TEST_F(ZucamRecordChange, StandardOutputGetsTheEndOfItsRecording)
{
    const std::string file = files_ / "x.mkv";
    tools::program recording("/bin/sh",
                             {"-c", "exec \"" ZUCAM_TOOL "\" record " + address_of(camera_) +
                                        " - | cat > '" + file + "'"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(file) > 0; }));
    change_the_codec();
    EXPECT_EQ(recording.exit_status(), 0) << "that of cat";
    EXPECT_THAT(recording.errors(), StartsWith("zucam: standard output: "));
    EXPECT_THAT(recording.errors(), HasSubstr("standard output takes one recording only"));
    EXPECT_EQ(tools::complaints(file), "");
}

// ---- no answer ----

// One that never comes keeps neither frames nor the end waiting.
TEST(ZucamRecordUnanswered, SegmentsGoOnWithTheKeyFramesThatCome)
{
    zucam::camera_options options = tools::small_pictures();
    options.initial_faults.never_answer = {0x1051};
    const zucam::camera camera(options);
    const scratch files;
    const ended result = tools::zucam({"record", address_of(camera), files / "x.mkv", "--segment",
                                       "0.05", "--timeout", "3", "--count", "150", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_GE(camera.received(0x1051), 1U);
    EXPECT_GE(tools::objects_in(result.out).size(), 2U);
}

TEST(ZucamRecordUnanswered, ACameraThatSendsNoVideoIsToldAndLeavesNothing)
{
    zucam::camera_options options = tools::small_pictures();
    options.initial_faults.drop_after_messages = 2; // each link ends before the first frame
    const zucam::camera camera(options);
    const scratch files;
    const ended result =
        tools::zucam({"record", address_of(camera), files / "x.mkv", "--timeout", "2"});
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.err, StartsWith("zucam: no video came from " + address_of(camera)));
    EXPECT_EQ(files.names().size(), 0U);
}

// ---- a reader that rests ----

TEST(ZucamRecordReader, ItsRestIsNotTheCamerasSilence)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    const std::string pipe = files / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera), pipe, "--format", "mkv",
                                          "--no-audio", "--timeout", "3", "--count", "60"});
    const ended reader =
        tools::shell("exec 3< '" + pipe + "'; sleep 5; exec cat <&3 > '" + (files / "x.mkv") + "'");
    EXPECT_EQ(recording.exit_status(), 0) << recording.errors();
    EXPECT_EQ(tools::frames_in(files / "x.mkv"), 60U);
}

} // namespace
