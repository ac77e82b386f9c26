// What zucam record leaves behind, looked at with ffprobe and decoded by ffmpeg: each format,
// sound, segments, changes of the video, and every way in which a recording may end.
#include "camera_requests.h"
#include "eventually.h"
#include "zucam_runner.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

using support::eventually;
using testing::HasSubstr;
using testing::MatchesRegex;
using tools::address_of;
using tools::ended;
using tools::json;
using tools::scratch;

json stream_of(const json& told, const std::string& kind)
{
    for (const json& each : told.at("streams")) {
        if (each.at("codec_type") == kind) {
            return each;
        }
    }
    return nullptr;
}

// ---- formats ----

class ZucamRecord : public testing::Test
{
protected:
    ended record(const std::string& name, std::vector<std::string> more = {})
    {
        std::vector<std::string> all = {
            "record", address_of(camera_), files_ / name, "--count", "40", "--json"};
        all.insert(all.end(), more.begin(), more.end());
        return tools::zucam(all);
    }

    zucam::camera camera_{tools::small_pictures()};
    const scratch files_;
};

TEST_F(ZucamRecord, AnMp4PlaysAndHoldsAllThatCame)
{
    const ended result = record("x.mp4", {"--no-audio"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(tools::complaints(files_ / "x.mp4"), "");
    const json told = tools::probe(files_ / "x.mp4");
    const json video = stream_of(told, "video");
    EXPECT_EQ(video["codec_name"], "h264");
    EXPECT_EQ(video["width"], 320);
    EXPECT_EQ(video["time_base"], "1/90000");
    EXPECT_EQ(video["nb_read_frames"], "40");
    const json printed = tools::objects_in(result.out).at(0);
    EXPECT_EQ(printed["file"], files_ / "x.mp4");
    EXPECT_EQ(printed["frames"], 40);
    EXPECT_EQ(printed["height"], 180);
    EXPECT_EQ(printed["bytes"], tools::size_of(files_ / "x.mp4"));
}

TEST_F(ZucamRecord, AnMkvHasItsSoundAndItsLength)
{
    const ended result = record("x.mkv");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(tools::complaints(files_ / "x.mkv"), "");
    const json told = tools::probe(files_ / "x.mkv");
    EXPECT_EQ(stream_of(told, "audio")["codec_name"], "pcm_mulaw");
    EXPECT_EQ(stream_of(told, "audio")["sample_rate"], "8000");
    EXPECT_TRUE(told["format"].contains("duration")) << "an orderly end writes it";
    EXPECT_EQ(tools::objects_in(result.out).at(0)["audio"], "pcm_mulaw");
}

TEST_F(ZucamRecord, SoundCanBeLeftOutAndIsToldWhereItHasNoPlace)
{
    ASSERT_EQ(record("x.mkv", {"--no-audio"}).status, 0);
    EXPECT_EQ(stream_of(tools::probe(files_ / "x.mkv"), "audio"), nullptr);
    const ended result = record("x.ts");
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zucam: the sound is left out: ts cannot carry G.711; mkv can\n");
}

TEST_F(ZucamRecord, TransportStreamAndBareVideoDecode)
{
    for (const char* const name : {"x.ts", "x.h264"}) {
        const ended result = record(name);
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(tools::complaints(files_ / name), "") << name;
        EXPECT_EQ(tools::frames_in(files_ / name), 40U) << name;
    }
}

TEST_F(ZucamRecord, BareVideoOfTheOtherCodecIsRefusedAndNothingIsLost)
{
    (void)files_.write("x.h265", "yesterday");
    const ended result = record("x.h265", {"--force"});
    EXPECT_EQ(result.status, 8);
    EXPECT_THAT(result.err, HasSubstr("the camera sends h264, which is no h265; give OUT.h264"));
    EXPECT_EQ(files_.read("x.h265"), "yesterday");
}

TEST_F(ZucamRecord, FramesHaveTheTimesOfTheirArrival)
{
    zucam::faults drop; // or they would arrive at an even pace
    drop.drop_after_messages = 20;
    drop.drop_times = 1;
    camera_.set_faults(drop);
    const ended result = record("x.mp4");
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string ask = "exec ffprobe -v error -select_streams v -show_entries packet=pts,dts ";
    std::istringstream lines(tools::shell(ask + "-of csv=p=0 '" + (files_ / "x.mp4") + "'").out);
    std::int64_t last = -1;
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::int64_t pts = std::stoll(line);
        EXPECT_GT(pts, last) << "strictly increasing";
        EXPECT_EQ(std::stoll(line.substr(line.find(',') + 1)), pts);
        EXPECT_TRUE(count > 0 || pts == 0) << "the first is 0";
        last = pts;
    }
    EXPECT_EQ(count, 40);
    // In whole ticks; a frame that came within the tick of the one before is put off by one.
    const double arrived = tools::objects_in(result.out).at(0).at("seconds").get<double>() * 90000;
    EXPECT_THAT(last, testing::AllOf(testing::Gt(arrived - 1), testing::Lt(arrived + 40)));
}

TEST(ZucamRecordH265, ItIsKeptAsItIs)
{
    zucam::camera_options options = tools::small_pictures();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    const scratch files;
    for (const char* const name : {"x.mp4", "x.mkv", "x.ts", "x.h265"}) {
        const ended result =
            tools::zucam({"record", address_of(camera), files / name, "--count", "30"});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(tools::complaints(files / name), "") << name;
        EXPECT_EQ(stream_of(tools::probe(files / name), "video")["codec_name"], "hevc") << name;
    }
}

// ---- one file after the other ----

TEST_F(ZucamRecord, SegmentsBeginWithKeyFramesAndMissNothing)
{
    const ended result = tools::zucam({"record", address_of(camera_), files_ / "x.mkv", "--segment",
                                       "0.02", "--count", "100", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<json> printed = tools::objects_in(result.out);
    ASSERT_GE(printed.size(), 2U);
    std::size_t frames = 0;
    for (const json& each : printed) {
        const std::string file = each["file"];
        EXPECT_THAT(file, MatchesRegex(".*/x-[0-9]{8}-[0-9]{6}(-[0-9]+)?\\.mkv"));
        EXPECT_EQ(tools::complaints(file), "");
        EXPECT_EQ(tools::frames_in(file), each["frames"]);
        frames += tools::frames_in(file);
    }
    EXPECT_EQ(frames, 100U);
    EXPECT_EQ(files_.names().size(), printed.size());
}

TEST_F(ZucamRecord, AnotherSizeBeginsANewFile)
{
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera_), files_ / "x.mp4"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(files_ / "x.mp4") > 0; }));
    ASSERT_EQ(
        tools::zucam({"config", "set", address_of(camera_), "video", "width=160", "height=120"})
            .status,
        0);
    ASSERT_TRUE(eventually([&] { return files_.names().size() == 2; }));
    const std::string second = files_ / files_.names().front();
    ASSERT_TRUE(eventually([&] { return tools::size_of(second) > 20000; }));
    recording.send_signal(SIGTERM);
    EXPECT_EQ(recording.exit_status(), 130);
    EXPECT_EQ(tools::complaints(files_ / "x.mp4"), "");
    EXPECT_EQ(tools::complaints(second), "");
    EXPECT_EQ(stream_of(tools::probe(files_ / "x.mp4"), "video")["width"], 320);
    EXPECT_EQ(stream_of(tools::probe(second), "video")["width"], 160);
}

TEST(ZucamRecordLink, ALostLinkLeavesAGapAndNoMore)
{
    zucam::camera camera(tools::small_pictures());
    const scratch files;
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera), files / "x.mp4"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(files / "x.mp4") > 20000; }));
    camera.drop_links();
    ASSERT_TRUE(eventually([&] { return camera.received(0x1001) == 2; })) << "it starts again";
    const std::size_t before = tools::size_of(files / "x.mp4");
    ASSERT_TRUE(eventually([&] { return tools::size_of(files / "x.mp4") > before + 20000; }));
    recording.send_signal(SIGINT);
    EXPECT_EQ(recording.exit_status(), 130);
    EXPECT_EQ(tools::complaints(files / "x.mp4"), "");
    EXPECT_EQ(files.names(), std::vector<std::string>{"x.mp4"});
}

// ---- how a recording may end ----

class ZucamRecordEnd : public testing::TestWithParam<const char*>
{
protected:
    const zucam::camera camera_{tools::small_pictures()};
    const scratch files_;
    const std::string file_ = files_ / (std::string("x.") + GetParam());
};

TEST_P(ZucamRecordEnd, AnInterruptionFinishesTheFile)
{
    tools::program recording(ZUCAM_TOOL,
                             {"record", address_of(camera_), file_, "--no-audio", "--json"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(file_) > 50000; }));
    recording.send_signal(SIGINT);
    EXPECT_EQ(recording.exit_status(), 130);
    EXPECT_EQ(recording.errors(), "");
    EXPECT_EQ(tools::complaints(file_), "");
    EXPECT_EQ(tools::frames_in(file_),
              tools::objects_in(recording.output()).at(0)["frames"].get<std::size_t>());
}

TEST_P(ZucamRecordEnd, WhatAKilledRecordingLeftPlays)
{
    tools::program recording(ZUCAM_TOOL, {"record", address_of(camera_), file_});
    ASSERT_TRUE(eventually([&] { return tools::size_of(file_) > 300000; }));
    recording.send_signal(SIGKILL);
    EXPECT_EQ(recording.exit_status(), 1000 + SIGKILL);
    EXPECT_GT(tools::frames_in(file_), 10U);
    const ended decoded =
        tools::shell("exec ffmpeg -v fatal -nostdin -i '" + file_ + "' -f null -");
    EXPECT_EQ(decoded.status, 0) << decoded.err;
}

TEST_P(ZucamRecordEnd, AFullDiskIsToldAndWhatWasKeptPlays)
{
    const ended result = tools::shell("ulimit -f 600; exec \"$ZUCAM\" record " +
                                      address_of(camera_) + " --no-audio '" + file_ + "'");
    EXPECT_EQ(result.status, 8);
    EXPECT_EQ(result.err, "zucam: cannot write " + file_ + ": File too large\n");
    EXPECT_GT(tools::frames_in(file_), 10U);
}

INSTANTIATE_TEST_SUITE_P(Formats, ZucamRecordEnd, testing::Values("mp4", "mkv", "ts", "h264"),
                         [](const auto& each) { return std::string(each.param); });

TEST_F(ZucamRecord, ADeviceThatIsFullIsToldSo)
{
    const ended result =
        tools::zucam({"record", address_of(camera_), "/dev/full", "--format", "mkv"});
    EXPECT_EQ(result.status, 8);
    EXPECT_EQ(result.err, "zucam: cannot write /dev/full: No space left on device\n");
}

TEST_F(ZucamRecord, AReaderThatHasHadEnoughEndsItQuietly)
{
    for (const char* const format : {"mkv", "ts", "h264", "mp4"}) {
        const ended result =
            tools::shell("{ \"$ZUCAM\" record " + address_of(camera_) + " - --no-audio --format " +
                         format + "; echo status $? >&2; } | head -c 1000 | wc -c");
        EXPECT_EQ(result.out, "1000\n") << format;
        EXPECT_EQ(result.err, "status 0\n") << format;
    }
}

TEST_F(ZucamRecord, APipeCarriesARecordingThatPlays)
{
    const ended result = tools::shell("\"$ZUCAM\" record " + address_of(camera_) +
                                      " - --count 30 -q | cat > '" + (files_ / "x.mkv") + "'");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(tools::complaints(files_ / "x.mkv"), "");
    EXPECT_EQ(tools::frames_in(files_ / "x.mkv"), 30U);
}

TEST_F(ZucamRecord, AnInterruptionEndsItThoughNobodyReadsThePipe)
{
    const ended made = tools::shell("mkfifo '" + (files_ / "pipe") + "'");
    ASSERT_EQ(made.status, 0);
    tools::program reader("/bin/sh",
                          {"-c", "exec 3< '" + (files_ / "pipe") + "'; echo open; kill -STOP $$"});
    tools::program recording(ZUCAM_TOOL,
                             {"record", address_of(camera_), files_ / "pipe", "--format", "ts"});
    ASSERT_EQ(reader.next_line(), "open");
    ASSERT_TRUE(eventually([&] { return camera_.counters().messages_sent > 200; }));
    recording.send_signal(SIGINT);
    EXPECT_EQ(recording.exit_status(), 130);
}

TEST(ZucamRecordStall, VideoThatStaysAwayEndsItAndTheFilePlays)
{
    zucam::camera camera(tools::small_pictures());
    const scratch files;
    tools::program recording(ZUCAM_TOOL,
                             {"record", address_of(camera), files / "x.mp4", "--timeout", "5"});
    ASSERT_TRUE(eventually([&] { return tools::size_of(files / "x.mp4") > 20000; }));
    zucam::faults silent;
    silent.silent = true;
    camera.set_faults(silent);
    EXPECT_EQ(recording.exit_status(), 5);
    EXPECT_THAT(recording.errors(), HasSubstr("no video came from"));
    EXPECT_EQ(tools::complaints(files / "x.mp4"), "");
}

// ---- nothing is lost ----

TEST_F(ZucamRecord, AnExistingFileIsReplacedOnlyWhenAskedTo)
{
    (void)files_.write("x.mp4", "yesterday");
    const ended refused = record("x.mp4");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("x.mp4 exists; give another name, or --force"));
    EXPECT_EQ(files_.read("x.mp4"), "yesterday");
    EXPECT_EQ(record("x.mp4", {"--force"}).status, 0);
    EXPECT_EQ(tools::complaints(files_ / "x.mp4"), "");
}

TEST(ZucamRecordNothing, ARunThatBringsNoVideoLosesNothing)
{
    const zucam::camera numbered(tools::no_pictures()); // no codec that anybody knows
    const scratch files;
    (void)files.write("x.mp4", "yesterday");
    const ended result = tools::zucam({"record", address_of(numbered), files / "x.mp4", "--force",
                                       "--seconds", "1", "--timeout", "4"});
    EXPECT_EQ(result.status, 6);
    EXPECT_THAT(result.err, HasSubstr("sends no key frame of H.264 or H.265"));
    EXPECT_EQ(files.read("x.mp4"), "yesterday");
}

TEST_F(ZucamRecord, AFolderThatIsNotThereIsToldBeforeAnythingIsAsked)
{
    const ended result = record("none/x.mp4");
    EXPECT_EQ(result.status, 8);
    EXPECT_THAT(result.err, HasSubstr("x.mp4: No such file or directory"));
    EXPECT_EQ(camera_.counters().connections_total, 0U);
}

// ---- as a service ----

// The socket that a service manager would listen on.
class ZucamRecordAsService : public ZucamRecord
{
protected:
    void SetUp() override
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = files_ / "manager";
        ASSERT_LT(path.size(), sizeof(address.sun_path));
        std::copy(path.begin(), path.end(), address.sun_path);
        manager_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(manager_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }

    void TearDown() override
    {
        close(manager_);
    }

    // In the order in which it came; all has come when the program has ended.
    std::string heard() const
    {
        char text[100];
        const ssize_t size = recv(manager_, text, sizeof(text), MSG_DONTWAIT);
        return size < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(size));
    }

private:
    int manager_ = -1;
};

TEST_F(ZucamRecordAsService, TellsWhenVideoIsKeptAndWhenItEnds)
{
    const ended result = record("x.mkv");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(heard(), "READY=1\nWATCHDOG=1");
    EXPECT_EQ(heard(), "STOPPING=1");
    EXPECT_EQ(heard(), "nothing");
}

TEST_F(ZucamRecordAsService, IsNotReadyWhenItCannotBegin)
{
    const ended result = record("missing/x.mkv");
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(heard(), "nothing");
}

} // namespace
