// Where zucam record and zucam snapshot may write to, and where not: terminals, pipes that nobody
// reads, folders that are not there, files of others.
#include "eventually.h"
#include "zucam_runner.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{

using support::eventually;
using testing::HasSubstr;
using tools::address_of;
using tools::ended;
using tools::scratch;

TEST(ZucamOutputs, ATerminalIsNotFilledWithVideoOrAPicture)
{
    for (const char* const command : {"record", "snapshot"}) {
        tools::terminal screen(ZUCAM_TOOL, {command, "127.0.0.1:1", "-"});
        EXPECT_EQ(screen.exit_status(), 2);
        EXPECT_THAT(screen.seen(), HasSubstr("zucam: OUT: '-' is a terminal")) << command;
    }
}

TEST(ZucamOutputs, FilesOfSegmentsNeedAFolderBeforeAnythingIsAsked)
{
    const zucam::camera camera(tools::no_pictures());
    const scratch files;
    const ended result =
        tools::zucam({"record", address_of(camera), files / "none/x.mkv", "--segment", "1"});
    EXPECT_EQ(result.status, 8);
    EXPECT_THAT(result.err, HasSubstr("none/x.mkv: No such file or directory"));
    EXPECT_EQ(camera.counters().connections_total, 0U);
}

TEST(ZucamOutputs, AFileWithTheNameOfSegmentsStays)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    (void)files.write("x.mkv", "yesterday");
    const ended result = tools::zucam(
        {"record", address_of(camera), files / "x.mkv", "--segment", "1", "--count", "5"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(files.read("x.mkv"), "yesterday");
    EXPECT_EQ(files.names().size(), 2U);
}

TEST(ZucamOutputs, APipeThatNobodyReadsYetIsWaitedFor)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    ASSERT_EQ(mkfifo((files / "pipe").c_str(), 0600), 0);
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera), files / "pipe", "--format",
                                          "mkv", "--count", "30"});
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > 50; }));
    const ended reader =
        tools::shell("exec cat '" + (files / "pipe") + "' > '" + (files / "x.mkv") + "'");
    EXPECT_EQ(recording.exit_status(), 0) << recording.errors();
    EXPECT_EQ(tools::complaints(files / "x.mkv"), "");
    EXPECT_EQ(tools::frames_in(files / "x.mkv"), 30U);
}

TEST(ZucamOutputs, AnInterruptionEndsTheWaitForAReader)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    ASSERT_EQ(mkfifo((files / "pipe").c_str(), 0600), 0);
    tools::program recording(ZUCAM_TOOL,
                             {"record", address_of(camera), files / "pipe", "--format", "mkv"});
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > 50; }));
    recording.send_signal(SIGINT);
    EXPECT_EQ(recording.exit_status(), 130);
    EXPECT_EQ(recording.errors(), "");
}

} // namespace
