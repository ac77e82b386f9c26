// What zucam says of itself, what it refuses, and the list of cameras. A refusal is one line that
// says what would be right; exit code 2.
#include "zucam_runner.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;
using tools::ended;
using tools::scratch;

const std::vector<std::vector<std::string>> all_commands = {
    {"info"},          {"watch"},         {"record"},          {"snapshot"},    {"config", "get"},
    {"config", "set"}, {"ptz", "move"},   {"ptz", "zoom"},     {"ptz", "stop"}, {"preset", "list"},
    {"preset", "go"},  {"preset", "set"}, {"preset", "clear"}, {"keyframe"},    {"bench"}};

std::string help_of(std::vector<std::string> command)
{
    command.emplace_back("--help");
    const ended result = tools::zucam(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
}

std::set<std::string> options_in(const std::string& text)
{
    const std::regex shape("--[a-z][a-z-]+");
    return {std::sregex_token_iterator(text.begin(), text.end(), shape),
            std::sregex_token_iterator()};
}

std::set<std::string> all_options()
{
    std::set<std::string> all = options_in(help_of({}));
    for (const auto& command : all_commands) {
        all.merge(options_in(help_of(command)));
    }
    return all;
}

TEST(ZucamUsage, HelpOfEachCommandHasExamplesAndTheCommonOptions)
{
    for (const auto& command : all_commands) {
        const std::string help = help_of(command);
        std::string name = "zucam";
        for (const std::string& word : command) {
            name += " " + word;
        }
        EXPECT_THAT(help, HasSubstr("Examples:\n  " + name + " "));
        EXPECT_THAT(help, HasSubstr("--timeout SECONDS"));
    }
}

TEST(ZucamUsage, VersionIsPrinted)
{
    const ended result = tools::zucam({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, MatchesRegex("zucam [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(ZucamUsage, ManualAndCompletionsKnowEveryOption)
{
    const scratch files;
    for (const char* const text :
         {"man/zucam.1.scd", "completion/_zucam", "completion/zucam.bash"}) {
        const ended known = tools::shell(std::string("exec cat " TOOL_SOURCES "/") + text);
        ASSERT_EQ(known.status, 0);
        for (const std::string& option : all_options()) {
            EXPECT_THAT(known.out, HasSubstr(option)) << text;
        }
    }
}

// Completes the words, the last of which has been begun.
std::set<std::string> completed(const std::string& words)
{
    const ended result = tools::shell(
        "exec bash -c '. " TOOL_SOURCES "/completion/zucam.bash; COMP_WORDS=(" + words +
        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zucam; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    EXPECT_EQ(result.err, "");
    std::istringstream lines(result.out);
    return {std::istream_iterator<std::string>(lines), std::istream_iterator<std::string>()};
}

TEST(ZucamUsage, BashCompletesCommandsOptionsAndCameras)
{
    const scratch files;
    const std::string list = files.write("cameras", "[door]\naddress = 127.0.0.1\n[dock]\n");
    EXPECT_EQ(completed("zucam re"), std::set<std::string>{"record"});
    EXPECT_EQ(completed("zucam -v ptz zo"), std::set<std::string>{"zoom"});
    EXPECT_EQ(completed("zucam record --se"), (std::set<std::string>{"--seconds", "--segment"}));
    EXPECT_EQ(completed("zucam info --cameras " + list + " do"),
              (std::set<std::string>{"door", "dock"}));
    EXPECT_EQ(completed("zucam config get door vi"), std::set<std::string>{"video"});
    EXPECT_EQ(completed("zucam ptz move --speed 5 door le"),
              (std::set<std::string>{"left", "left-up", "left-down"}));
    EXPECT_EQ(completed("zucam record door \"\""), std::set<std::string>()) << "files, by bash";
}

TEST(ZucamUsage, BashCompletesBehindWhatItHasCutAtColonsAndEqualsSigns)
{
    EXPECT_EQ(completed("zucam config get 127.0.0.1 : 9000 vi"), std::set<std::string>{"video"});
    EXPECT_EQ(completed("zucam --user = me ptz zoom 127.0.0.1 o"), std::set<std::string>{"out"});
    EXPECT_EQ(completed("zucam info --stream = \"\""), (std::set<std::string>{"0", "1", "2", "3"}));
}

struct refusal {
    std::vector<std::string> arguments;
    std::string says;
};

TEST(ZucamUsage, WrongArgumentsAreRefusedInOneLineThatSaysWhatIsRight)
{
    const std::vector<refusal> table = {
        {{}, "say what to do: info, watch, record"},
        {{"inof", "127.0.0.1"}, "'inof' is no command of zucam; say info, watch"},
        {{"--colour"}, "'--colour' is no option of zucam; see zucam --help"},
        {{"info"}, "CAMERA is required; see zucam info --help"},
        {{"info", "127.0.0.1", "surplus"}, "'surplus' is one argument too many; see zucam info"},
        {{"info", "127.0.0.1", "--colour=red"}, "'--colour' is no option of zucam info; see"},
        {{"info", "127.0.0.1:0"}, "a port from 1 to 65535"},
        {{"info", "127.0.0.1:90x"}, "a port from 1 to 65535"},
        {{"info", "192.0.2.256"}, "'192.0.2.256' is no camera; give an address such as"},
        {{"info", "no camera"}, "or list it in "},
        {{"info", ""}, "is no camera"},
        {{"info", "127.0.0.1", "--timeout", "soon"}, "--timeout: 'soon' is not possible; give s"},
        {{"info", "127.0.0.1", "--timeout", "0"}, "0.001 to 1000000"},
        {{"info", "127.0.0.1", "--stream", "4"}, "a stream, 0 to 3"},
        {{"info", "127.0.0.1", "--stream-type", "6"}, "1 to 5, or 7"},
        {{"info", "127.0.0.1", "--user", "longer than 15 c"}, "--user: devices take 15"},
        {{"info", "127.0.0.1", "--password", "longer than 15 c"}, "--password: devices take 15"},
        {{"info", "127.0.0.1", "--password"}, "--password"},
        {{"info", "name", "--cameras", "/nowhere/at/all"}, "/nowhere/at/all cannot be read"},
        {{"info", "name", "--cameras", "/"}, "is a folder"},
        {{"watch", "127.0.0.1", "--seconds", "-1"}, "--seconds"},
        {{"watch", "127.0.0.1", "--count", "0"}, "a number of frames"},
        {{"record", "127.0.0.1"}, "OUT is required"},
        {{"record", "127.0.0.1", "x"}, "a name that ends with mp4, mkv, ts, h264 or h265"},
        {{"record", "127.0.0.1", "x.avi"}, "a name that ends with mp4, mkv"},
        {{"record", "127.0.0.1", "x.mp4", "--format", "avi"}, "mp4, mkv, ts, h264 or h265"},
        {{"record", "127.0.0.1", "x.mp4", "--segment", "0"}, "minutes"},
        {{"record", "127.0.0.1", "-", "--segment", "1"}, "one recording only"},
        {{"record", "127.0.0.1", "-", "--json"}, "cannot both go to standard output"},
        {{"record", "127.0.0.1", "/", "--format", "mp4"}, "is a folder"},
        {{"snapshot", "127.0.0.1", "x.gif"}, "ends with jpg or png"},
        {{"snapshot", "127.0.0.1", "x.png", "--format", "gif"}, "jpg or png"},
        {{"snapshot", "127.0.0.1", "-", "--json"}, "cannot both go to standard output"},
        {{"config"}, "say what to do: get, set; see zucam config --help"},
        {{"ptz", "sideways", "127.0.0.1"}, "'sideways' is no command of zucam ptz; say move, zoom"},
        {{"ptz", "move", "127.0.0.1"}, "DIRECTION is required; see zucam ptz move --help"},
        {{"config", "get", "127.0.0.1", "colour"}, "video, audio, encode-level, idr-qp, presets"},
        {{"config", "set", "127.0.0.1", "video"}, "CHANGE is required"},
        {{"config", "set", "127.0.0.1", "video", "colour=1"}, "channel, protocol, bitrate"},
        {{"config", "set", "127.0.0.1", "video", "stream=1"}, "chosen by --stream"},
        {{"config", "set", "127.0.0.1", "video", "bitrate=fast"}, "'fast' is not possible; give a"},
        {{"config", "set", "127.0.0.1", "video", "bitrate=-1"}, "0 to 4294967295"},
        {{"config", "set", "127.0.0.1", "video", "0011"}, "all 44 bytes"},
        {{"config", "set", "127.0.0.1", "video", "bitrate"}, "KEY=VALUE"},
        {{"config", "set", "127.0.0.1", "audio", "enable=maybe"}, "on or off"},
        {{"config", "set", "127.0.0.1", "presets", "3=1,2"}, "PAN,TILT,ZOOM"},
        {{"config", "set", "127.0.0.1", "presets", "x=1,2,3"}, "the number of a preset"},
        {{"config", "set", "127.0.0.1", "0x2001", "0g"}, "bytes such as 0100ff"},
        {{"ptz", "move", "127.0.0.1", "sideways"}, "up, down, left, right"},
        {{"ptz", "move", "127.0.0.1", "stop"}, "up, down, left, right"},
        {{"ptz", "zoom", "127.0.0.1", "left"}, "in or out"},
        {{"ptz", "move", "127.0.0.1", "left", "--speed", "fast"}, "a speed of the device's"},
        {{"ptz", "move", "127.0.0.1", "left", "--for", "long"}, "seconds"},
        {{"preset", "go", "127.0.0.1", "home"}, "the number of a preset"},
        {{"keyframe", "127.0.0.1", "--count", "0"}, "a number of key frames"},
        {{"bench", "127.0.0.1", "--parallel", "65"}, "1 to 64"}};
    for (const refusal& each : table) {
        const ended result = tools::zucam(each.arguments);
        const std::string shown = testing::PrintToString(each.arguments);
        EXPECT_EQ(result.status, 2) << shown;
        EXPECT_EQ(result.out, "") << shown;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.err, testing::StartsWith("zucam: ")) << shown;
        EXPECT_THAT(result.err, HasSubstr(each.says)) << shown;
    }
}

// ---- the list of cameras ----

ended with_list(const scratch& files, const std::string& name, const std::string& list)
{
    return tools::zucam({"preset", "list", name, "--cameras", files.write("cameras", list)});
}

TEST(ZucamUsage, ACameraIsFoundByItsName)
{
    const zucam::camera camera(tools::no_pictures());
    const scratch files;
    const std::string list =
        "# cameras\n\n[yard]\naddress = 192.0.2.1\n[door]\n address=" + tools::address_of(camera) +
        " \nuser = me\n";
    const ended result = with_list(files, "door", list);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(camera.received(0x1071), 1U);
}

TEST(ZucamUsage, TheListIsLookedForInTheUsualFolder)
{
    const zucam::camera camera(tools::no_pictures());
    const scratch files;
    const std::string line = "[door]\naddress = " + tools::address_of(camera) + "\n";
    const ended made = tools::shell("mkdir '" + (files / "zucam") + "'");
    ASSERT_EQ(made.status, 0);
    (void)files.write("zucam/cameras", line);
    const ended result =
        tools::shell("XDG_CONFIG_HOME='" + (files / "") + "' exec \"$ZUCAM\" preset list door");
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST(ZucamUsage, AHostsNameIsLookedUp)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result =
        tools::zucam({"preset", "list", "localhost:" + std::to_string(camera.port())});
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST(ZucamUsage, AnUnknownNameIsToldWhichThereAre)
{
    const scratch files;
    const ended result =
        with_list(files, "no_such", "[door]\naddress = 192.0.2.7\n[yard]\naddress = 192.0.2.8\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, MatchesRegex("zucam: 'no_such' is no camera; [^\n]*: door, yard\n"));
}

TEST(ZucamUsage, AWrongListIsRefusedWithItsLineAndNeverTellsAPassword)
{
    const std::vector<std::pair<std::string, std::string>> table = {
        {"[door\n", ":1: a camera begins with its name"},
        {"[]\n", ":1: a camera begins with its name"},
        {"[the door]\n", ":1: a camera begins with its name"},
        {"\n[a]\naddress=1.2.3.4\n[a]\n", ":4: there is a camera 'a' already"},
        {"[a]\nuser=me\n[b]\naddress=1.2.3.4\n", ":1: camera 'a' has no address"},
        {"[a]\naddress=1.2.3.4\n\n[b]\n", ":4: camera 'b' has no address"},
        {"address=1.2.3.4\n", ":1: a camera's name such as [door] comes first"},
        {"[a]\naddress\n", ":2: a line is a name"},
        {"[a]\npasswort = hunter2-x\n", ":2: the keys are address, user, password"},
        {"[a]\nhunter2-x\n", ":2: a line is"},
        {"[a]\naddress=1.2.3.4\nptz-stop = -1\n", ":3: ptz-stop takes a number"},
        {"[a]\naddress=1.2.3.4\nptz-left = left\n", ":3: ptz-left takes a number"}};
    for (const auto& [list, says] : table) {
        const scratch files;
        const ended result = with_list(files, "a", list);
        EXPECT_EQ(result.status, 2) << list;
        EXPECT_THAT(result.err, HasSubstr((files / "cameras") + says)) << list;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.err.find("hunter2"), std::string::npos);
    }
}

} // namespace
