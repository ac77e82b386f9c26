// Commands that ask something and print the answer: config, preset, ptz, keyframe, info, bench; and
// the exit codes of cameras that are not there, say nothing or refuse.
#include "camera_requests.h"
#include "eventually.h"
#include "zucam_runner.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using support::eventually;
using testing::HasSubstr;
using tools::address_of;
using tools::ended;
using tools::json;

json object_in(const ended& result)
{
    const std::vector<json> all = tools::objects_in(result.out);
    EXPECT_EQ(all.size(), 1U) << result.out << result.err;
    return all.empty() ? json() : all.front();
}

// The payloads of the requests of a type, in hexadecimal.
std::vector<std::string> payloads(const zucam::camera& camera, std::uint32_t type)
{
    std::vector<std::string> all;
    for (const zucam::journal_entry& each : camera.journal()) {
        if (each.type == type) {
            std::string text;
            for (const auto byte : each.payload) {
                const char* const digits = "0123456789abcdef";
                text += digits[byte / 16];
                text += digits[byte % 16];
            }
            all.push_back(text);
        }
    }
    return all;
}

// ---- config ----

TEST(ZucamConfig, ASettingIsPrintedByTheNamesOfItsFields)
{
    const zucam::camera camera(tools::small_pictures());
    const ended text = tools::zucam({"config", "get", address_of(camera), "video"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_THAT(text.out, HasSubstr("bitrate: 2048\n"));
    EXPECT_THAT(text.out, HasSubstr("width: 320\nheight: 180\n"));
    const json second = object_in(
        tools::zucam({"config", "get", address_of(camera), "0x1047", "--stream", "1", "--json"}));
    EXPECT_EQ(second["setting"], "video");
    EXPECT_EQ(second["value"]["stream"], 1);
    EXPECT_EQ(second["value"]["width"], 160);
}

TEST(ZucamConfig, FieldsAreChangedAndTheOthersStay)
{
    const zucam::camera camera(tools::small_pictures());
    const ended result = tools::zucam({"config", "set", address_of(camera), "video", "bitrate=512",
                                       "u32ImgQuality=0x20", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json value = object_in(result)["value"];
    EXPECT_EQ(value["bitrate"], 512);
    EXPECT_EQ(value["img_quality"], 32);
    EXPECT_EQ(value["iframe"], 25);
    const ended sound =
        tools::zucam({"config", "set", address_of(camera), "audio", "enable=off", "--json"});
    EXPECT_EQ(object_in(sound)["value"]["enable"], 0);
}

TEST(ZucamConfig, TheOtherSettingsHaveNamesToo)
{
    const zucam::camera camera(tools::no_pictures());
    for (const std::string each : {"encode-level level", "idr-qp qp"}) {
        const std::string name = each.substr(0, each.find(' '));
        const std::string field = each.substr(each.find(' ') + 1);
        const json changed = object_in(
            tools::zucam({"config", "set", address_of(camera), name, field + "=2", "--json"}));
        EXPECT_EQ(changed["value"][field], 2) << each;
    }
}

TEST(ZucamConfig, BytesAreTakenAndGivenAsHexadecimal)
{
    const zucam::camera camera(tools::no_pictures());
    const ended level =
        tools::zucam({"config", "set", address_of(camera), "0x1051", "01 000000", "--hex"});
    EXPECT_EQ(level.status, 0) << level.err;
    EXPECT_EQ(level.out, "01000000\n");
    const ended other =
        tools::zucam({"config", "set", address_of(camera), "0x2001", "01ff", "--json"});
    EXPECT_EQ(object_in(other), json({{"setting", "0x2001"}, {"code", 0}}));
    EXPECT_THAT(payloads(camera, 0x1061).back(), HasSubstr("01ff00"));
    const ended read = tools::zucam({"config", "get", address_of(camera), "0x2001"});
    EXPECT_EQ(read.out, "command 0x2001: done\n");
}

TEST(ZucamConfig, PresetsAreChangedByTheirNumbers)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result = tools::zucam(
        {"config", "set", address_of(camera), "presets", "3=100,-50,2000", "7=0,0,1000", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const ended fewer = tools::zucam({"config", "set", address_of(camera), "presets", "7=none"});
    EXPECT_EQ(fewer.out, "3: pan 100, tilt -50, zoom 2000, focus 0\n");
}

// ---- presets ----

TEST(ZucamPreset, PositionsAreStoredListedVisitedAndCleared)
{
    const zucam::camera camera(tools::no_pictures());
    const std::string at = address_of(camera);
    EXPECT_EQ(tools::zucam({"preset", "set", at, "4"}).status, 0);
    const ended list = tools::zucam({"preset", "list", at});
    EXPECT_EQ(list.out, "4: pan 0, tilt 0, zoom 1000, focus 0\n");
    EXPECT_EQ(object_in(tools::zucam({"preset", "list", at, "--json"}))["num"], 4);
    EXPECT_EQ(tools::zucam({"preset", "go", at, "4"}).status, 0);
    EXPECT_EQ(tools::zucam({"preset", "clear", at, "4"}).status, 0);
    const ended none = tools::zucam({"preset", "list", at});
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "zucam: no presets are stored\n");
    EXPECT_THAT(payloads(camera, 0x1041),
                testing::ElementsAre("0100000004000000", "0200000004000000", "0300000004000000"));
}

TEST(ZucamPreset, ARefusalIsToldWithTheDevicesCode)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result = tools::zucam({"preset", "go", address_of(camera), "5"});
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err,
              "zucam: " + address_of(camera) + " refused preset go 5, with its code 2\n");
    const ended other = tools::zucam({"preset", "go", address_of(camera), "5", "--command", "99"});
    EXPECT_THAT(other.err, HasSubstr("with its code 1\n"));
}

// ---- pan, tilt, zoom ----

TEST(ZucamPtz, AMovementIsStoppedByItself)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result = tools::zucam(
        {"ptz", "move", address_of(camera), "up-left", "--speed", "7", "--for", "0.2", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(object_in(result)["action"], "ptz-left-up");
    const auto sent = payloads(camera, 0x1031);
    ASSERT_GE(sent.size(), 2U);
    EXPECT_EQ(sent.front(), "0500000007000000");
    // When the time is up before the movement is answered, a second stop follows the first.
    EXPECT_THAT(std::vector<std::string>(sent.begin() + 1, sent.end()),
                testing::Each("0000000000000000"));
}

TEST(ZucamPtz, ZoomAndStopAndNumbersOfTheDevicesOwn)
{
    const zucam::camera camera(tools::no_pictures());
    const tools::scratch files;
    const std::string list = files.write("cameras", "[door]\naddress = " + address_of(camera) +
                                                        "\nzoom-in = 10\nptz-stop = 0\n");
    EXPECT_EQ(tools::zucam({"ptz", "zoom", "door", "in", "--no-stop", "--cameras", list}).status,
              0);
    EXPECT_EQ(tools::zucam({"ptz", "stop", address_of(camera)}).status, 0);
    EXPECT_EQ(tools::zucam({"ptz", "stop", address_of(camera), "--command", "77"}).status, 7);
    const auto sent = payloads(camera, 0x1031);
    ASSERT_GE(sent.size(), 3U);
    EXPECT_EQ(sent.front(), "0a00000020000000") << "the list's number";
    EXPECT_EQ(sent.back(), "4d00000000000000") << "the option's number";
}

TEST(ZucamPtz, AnInterruptionStopsTheMovement)
{
    const zucam::camera camera(tools::no_pictures());
    tools::program moving(ZUCAM_TOOL, {"ptz", "move", address_of(camera), "left", "--for", "1000"});
    ASSERT_TRUE(eventually([&] { return camera.received(0x1031) == 1; }));
    // Answered, so the program is about to wait: whichever way it ends, it stops the camera.
    moving.send_signal(SIGINT);
    EXPECT_EQ(moving.exit_status(), 130);
    EXPECT_EQ(payloads(camera, 0x1031).back(), "0000000000000000");
}

// ---- key frames, info, bench ----

TEST(ZucamKeyframe, EachIsWaitedFor)
{
    zucam::camera_options options = tools::small_pictures();
    options.gop = 10000; // none comes by itself
    const zucam::camera camera(options);
    const ended result = tools::zucam({"keyframe", address_of(camera), "--count", "3", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(tools::objects_in(result.out).size(), 3U);
    EXPECT_GE(camera.received(0x1051), 3U);
}

TEST(ZucamInfo, ItTellsWhatTheCameraSendsAndHowItIsSet)
{
    const zucam::camera camera(tools::small_pictures());
    const ended result = tools::zucam({"info", address_of(camera), "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json told = object_in(result);
    EXPECT_EQ(told["camera"]["port"], camera.port());
    EXPECT_EQ(told["video"]["codec"], "h264");
    EXPECT_EQ(told["video"]["width"], 320);
    EXPECT_EQ(told["settings"]["video"]["bitrate"], 2048);
    EXPECT_EQ(told["description"]["audio_format"], 2);
    EXPECT_EQ(told["settings"]["idr-qp"]["qp"], 26);
    EXPECT_EQ(told["settings"]["presets"], json::array());
    EXPECT_GT(told["round_trip_ms"].get<double>(), 0.0);
    const ended text = tools::zucam({"info", address_of(camera), "--stream", "1"});
    EXPECT_THAT(text.out, HasSubstr("sends:         h264 160 x 90"));
}

TEST(ZucamInfo, EverythingIsAskedEvenWhenSomethingFails)
{
    zucam::camera_options options = tools::no_pictures(); // video that nobody can decode
    options.initial_faults.never_answer = {0x1071};
    const zucam::camera camera(options);
    const ended result = tools::zucam({"info", address_of(camera), "--timeout", "3", "--json"});
    EXPECT_EQ(result.status, 6) << "the first failure decides";
    const json told = object_in(result);
    EXPECT_THAT(told["video"]["error"].get<std::string>(), HasSubstr("no key frame"));
    EXPECT_THAT(told["settings"]["audio"]["error"].get<std::string>(), HasSubstr("did not answer"));
}

TEST(ZucamBench, ItMeasuresFramesAndRequests)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result = tools::zucam({"bench", address_of(camera), "--seconds", "8", "--count",
                                       "20", "--parallel", "2", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json told = object_in(result);
    EXPECT_GT(told["frames_per_second"].get<double>(), 0.0);
    EXPECT_EQ(told["requests"], 20);
    EXPECT_EQ(camera.received(0x1071), 20U);
    EXPECT_LE(told["round_trip_ms"]["min"].get<double>(),
              told["round_trip_ms"]["p99"].get<double>());
}

TEST(ZucamBench, TheShortestOneMeasuresTheVideoToo)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result =
        tools::zucam({"bench", address_of(camera), "--seconds", "0.001", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_GT(object_in(result)["frames_per_second"].get<double>(), 0.0);
}

// ---- what may go wrong ----

TEST(ZucamFailures, NobodyThere)
{
    zucam::camera_options options = tools::no_pictures();
    options.initial_faults.refuse = true;
    const zucam::camera camera(options);
    const ended result = tools::zucam({"info", address_of(camera)});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("cannot connect to " + address_of(camera)));
}

TEST(ZucamFailures, ACameraThatNeverAnswers)
{
    zucam::camera_options options = tools::no_pictures();
    options.initial_faults.silent = true;
    const zucam::camera camera(options);
    const ended result =
        tools::zucam({"config", "get", address_of(camera), "video", "--timeout", "0.2"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("did not answer the reading of video within 0.2 s"));
}

TEST(ZucamFailures, StandardOutputThatIsFullOrClosed)
{
    const zucam::camera camera(tools::no_pictures());
    const std::string command = "\"$ZUCAM\" config get " + address_of(camera) + " video";
    const ended full = tools::shell(command + " > /dev/full");
    EXPECT_EQ(full.status, 8);
    EXPECT_THAT(full.err, HasSubstr("cannot write to standard output: No space left"));
    const ended gone = tools::shell("{ " + command + "; echo status $? >&2; } | :");
    EXPECT_EQ(gone.err, "status 0\n");
    const ended closed = tools::shell(command + " >&-");
    EXPECT_EQ(closed.status, 8);
    EXPECT_THAT(closed.err, HasSubstr("cannot write to standard output: Bad file descriptor"));
}

} // namespace
