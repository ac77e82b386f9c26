// zucam snapshot: pictures that decode, in the colours of the scene, and files that are never half
// written. And zucam sim.
#include "zucam_runner.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using tools::address_of;
using tools::ended;
using tools::scratch;

// ---- snapshot ----

TEST(ZucamSnapshot, PicturesDecodeAndHaveTheVideosSize)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    for (const char* const name : {"x.jpg", "x.png"}) {
        const ended result = tools::zucam({"snapshot", address_of(camera), files / name, "--json"});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(tools::complaints(files / name), "");
        const auto video = tools::probe(files / name).at("streams").at(0);
        EXPECT_EQ(video["width"], 320);
        EXPECT_EQ(video["height"], 180);
        const auto printed = tools::objects_in(result.out).at(0);
        EXPECT_EQ(printed["bytes"], tools::size_of(files / name));
    }
    EXPECT_EQ(files.names().size(), 2U) << "nothing else is left";
}

// The mean colour of a picture, three numbers from 0 to 255.
std::vector<int> colour_of(const std::string& file)
{
    const ended result = tools::shell("exec ffmpeg -v error -nostdin -i '" + file +
                                      "' -vf scale=1:1:flags=area,format=rgb24 -f rawvideo -");
    std::vector<int> colour;
    for (const char each : result.out) {
        colour.push_back(static_cast<unsigned char>(each));
    }
    return colour;
}

TEST(ZucamSnapshot, ColoursAreThoseOfTheScene)
{
    zucam::camera_options options = tools::small_pictures();
    options.source = "color=c=0xE02010:s=320x180"; // red
    const zucam::camera camera(options);
    const scratch files;
    for (const char* const name : {"x.jpg", "x.png"}) {
        ASSERT_EQ(tools::zucam({"snapshot", address_of(camera), files / name}).status, 0);
        const std::vector<int> colour = colour_of(files / name);
        ASSERT_EQ(colour.size(), 3U);
        EXPECT_NEAR(colour[0], 0xE0, 6) << name;
        EXPECT_NEAR(colour[1], 0x20, 6) << name;
        EXPECT_NEAR(colour[2], 0x10, 6) << name;
    }
}

TEST(ZucamSnapshot, H265AndStandardOutput)
{
    zucam::camera_options options = tools::small_pictures();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    const scratch files;
    const ended result = tools::shell("exec \"$ZUCAM\" snapshot " + address_of(camera) +
                                      " - --format png > '" + (files / "x.png") + "'");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(tools::complaints(files / "x.png"), "");
}

TEST(ZucamSnapshot, AFailureLosesNothing)
{
    const zucam::camera numbered(tools::no_pictures());
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    (void)files.write("x.jpg", "yesterday");
    EXPECT_EQ(tools::zucam({"snapshot", address_of(camera), files / "x.jpg"}).status, 2);
    EXPECT_EQ(tools::zucam(
                  {"snapshot", address_of(numbered), files / "x.jpg", "--force", "--timeout", "3"})
                  .status,
              6);
    const ended full = tools::shell("ulimit -f 1; exec \"$ZUCAM\" snapshot " + address_of(camera) +
                                    " '" + (files / "x.jpg") + "' --force");
    EXPECT_EQ(full.status, 8) << full.err;
    EXPECT_EQ(files.read("x.jpg"), "yesterday");
    EXPECT_EQ(files.names(), std::vector<std::string>{"x.jpg"});
    EXPECT_EQ(tools::zucam({"snapshot", address_of(camera), files / "x.jpg", "--force"}).status, 0);
    EXPECT_EQ(tools::complaints(files / "x.jpg"), "");
}

TEST(ZucamSnapshot, ALinkStaysAndItsFileIsReplaced)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    (void)files.write("x.jpg", "yesterday");
    ASSERT_EQ(symlink("x.jpg", (files / "link.jpg").c_str()), 0);
    const ended result =
        tools::zucam({"snapshot", address_of(camera), files / "link.jpg", "--force"});
    EXPECT_EQ(result.status, 0) << result.err;
    char target[10] = {};
    EXPECT_EQ(readlink((files / "link.jpg").c_str(), target, sizeof(target)), 5);
    EXPECT_EQ(tools::complaints(files / "x.jpg"), "");
    EXPECT_EQ(files.names().size(), 2U) << "nothing else is left";
}

// ---- sim ----

TEST(ZucamSim, TheVirtualCameraIsFoundAndGetsItsOptions)
{
    tools::program sim(ZUCAM_TOOL, {"sim", "--numbered", "64", "--port", "0"});
    const std::uint16_t port = tools::port_in(sim.next_line());
    ASSERT_NE(port, 0);
    const ended result = tools::zucam({"preset", "list", "127.0.0.1:" + std::to_string(port)});
    EXPECT_EQ(result.status, 0) << result.err;
    sim.send_signal(SIGINT);
    EXPECT_EQ(sim.exit_status(), 0) << "the signals are as they were";
}

TEST(ZucamSim, ItsHelpIsTheVirtualCamerasAndItsRefusalsToo)
{
    const ended help = tools::zucam({"sim", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--drop-after SECONDS"));
    EXPECT_EQ(tools::zucam({"sim", "--port", "none"}).status, 2);
}

TEST(ZucamSim, ItIsFoundInPathToo)
{
    const scratch files;
    const ended result = tools::shell(
        "cp \"$ZUCAM\" '" + (files / "zucam") + "' && cd '" + (files / "") +
        "' && printf '#!/bin/sh\\necho found \"$@\"\\n' > zucam-sim && chmod +x zucam-sim && mkdir "
        "bin && mv zucam bin && PATH=\"$PWD:$PATH\" exec bin/zucam sim --size 64x64 --cameras 2");
    EXPECT_EQ(result.out, "found --size 64x64 --cameras 2 --port 9000\n") << result.err;
}

TEST(ZucamSim, AMissingVirtualCameraIsTold)
{
    const scratch files;
    const ended result = tools::shell("cp \"$ZUCAM\" '" + (files / "zucam") + "' && PATH= exec '" +
                                      (files / "zucam") + "' sim");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("zucam: zucam-sim cannot be started: "));
}

} // namespace
