// zucam watch: the timeline across a lost link, what a script reads of it, and the live line at a
// terminal.
#include "eventually.h"
#include "zucam_runner.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;
using tools::address_of;
using tools::ended;
using tools::json;

// The next object of this event; nothing when none comes.
json next_of(tools::program& watching, const std::string& event)
{
    for (;;) {
        const std::string line = watching.next_line();
        if (line.empty()) {
            return nullptr;
        }
        json object = json::parse(line);
        if (object.at("event") == event) {
            return object;
        }
    }
}

TEST(ZucamWatch, ALostLinkAndItsReturnStandInTheTimeline)
{
    zucam::camera camera(tools::small_pictures());
    tools::program watching(ZUCAM_TOOL, {"watch", address_of(camera), "--json"});
    EXPECT_EQ(next_of(watching, "connected").at("camera"), address_of(camera));
    EXPECT_EQ(next_of(watching, "video").at("codec"), "h264");
    camera.drop_links();
    const json down = next_of(watching, "link down");
    const json up = next_of(watching, "link up");
    ASSERT_TRUE(down.is_object());
    ASSERT_TRUE(up.is_object());
    EXPECT_GT(up.at("seconds"), down.at("seconds"));
    EXPECT_THAT(down.at("time").get<std::string>(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z"));
    json figures = next_of(watching, "figures");
    while (figures.is_object() && figures.at("reconnections") == 0) {
        figures = next_of(watching, "figures"); // those may be older than the link is
    }
    ASSERT_TRUE(figures.is_object());
    EXPECT_EQ(figures.at("reconnections"), 1);
    watching.send_signal(SIGINT);
    const json summary = next_of(watching, "summary");
    EXPECT_EQ(watching.exit_status(), 130);
    EXPECT_GT(summary.at("frames"), 0);
    EXPECT_EQ(summary.at("reconnections"), 1);
    const std::vector<json> all = tools::objects_in(watching.output());
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const json& each) { return each.at("event") == "stream"; }),
              1)
        << "told when it changes, not when it is said again";
}

TEST(ZucamWatch, TheSimulatorsDropsAreSeenByOptions)
{
    tools::program sim(ZUCAM_SIM,
                       {"--numbered", "64", "--drop-after-messages", "40", "--drop-times", "1"});
    const std::uint16_t port = tools::port_in(sim.next_line());
    tools::program watching(ZUCAM_TOOL, {"watch", "127.0.0.1:" + std::to_string(port), "--json"});
    EXPECT_TRUE(next_of(watching, "link down").is_object());
    EXPECT_TRUE(next_of(watching, "link up").is_object());
    watching.send_signal(SIGTERM);
    EXPECT_EQ(watching.exit_status(), 130);
}

TEST(ZucamWatch, TextHasALineForEachEventAndASummary)
{
    const zucam::camera camera(tools::small_pictures());
    const ended result = tools::zucam({"watch", address_of(camera), "--count", "30"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "") << "no live line where there is no terminal";
    EXPECT_THAT(result.out, HasSubstr("  connected: camera " + address_of(camera)));
    EXPECT_THAT(result.out, HasSubstr("  stream: width 320, height 180, frame rate 25"));
    EXPECT_THAT(result.out, HasSubstr("  video: codec h264\n"));
    EXPECT_THAT(result.out, HasSubstr("  summary: frames "));
    std::istringstream lines(result.out);
    std::string line;
    while (std::getline(lines, line)) {
        EXPECT_THAT(line, MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  .*"));
    }
}

TEST(ZucamWatch, VideoThatStopsIsAStallInTheTimelineAndAtTheEnd)
{
    zucam::camera camera(tools::small_pictures());
    tools::program watching(
        ZUCAM_TOOL, {"watch", address_of(camera), "--json", "--timeout", "3", "--seconds", "20"});
    EXPECT_EQ(next_of(watching, "video").at("codec"), "h264");
    zucam::faults silent;
    silent.silent = true;
    camera.set_faults(silent);
    EXPECT_TRUE(next_of(watching, "media stalled").is_object());
    EXPECT_EQ(watching.exit_status(), 5);
    EXPECT_THAT(watching.errors(), HasSubstr("no video from " + address_of(camera)));
}

TEST(ZucamWatch, AClosedPipeEndsItQuietly)
{
    const zucam::camera camera(tools::small_pictures());
    const ended result = tools::shell("{ \"$ZUCAM\" watch " + address_of(camera) +
                                      " --json; echo status $? >&2; } | head -n 1");
    EXPECT_EQ(result.err, "status 0\n");
    EXPECT_EQ(tools::objects_in(result.out).size(), 1U);
}

TEST(ZucamWatch, TheLiveLineStandsAtTheBottomOfATerminalAndGoes)
{
    const zucam::camera camera(tools::small_pictures());
    tools::terminal screen(ZUCAM_TOOL, {"watch", address_of(camera), "--password", ""});
    EXPECT_TRUE(screen.shows("flowing  "));
    EXPECT_TRUE(screen.shows(" key 25/"));
    screen.send_signal(SIGINT);
    EXPECT_EQ(screen.exit_status(), 130);
    const std::string& seen = screen.seen();
    const std::size_t last_live = seen.rfind("frames/s");
    const std::size_t erased = seen.rfind("\r\033[K");
    const std::size_t summary = seen.rfind("summary: frames");
    ASSERT_NE(last_live, std::string::npos);
    EXPECT_LT(last_live, erased);
    EXPECT_LT(erased, summary);
}

// How wide the widest live line was; without what erases the one before.
std::size_t widest_live_line(const std::string& seen, const std::string& unit)
{
    std::size_t widest = 0;
    std::istringstream pieces(seen);
    std::string piece;
    while (std::getline(pieces, piece, '\r')) {
        if (piece.find(unit) != std::string::npos) {
            widest = std::max(widest, piece.size() - 3);
        }
    }
    return widest;
}

TEST(ZucamWatch, TheLiveLineTellsAllOnNarrowTerminalsToo)
{
    const zucam::camera camera(tools::small_pictures());
    struct shape {
        unsigned short columns;
        const char* unit;
        const char* last;
    };
    for (const shape& each :
         {shape{60, "fps", " re 0"}, shape{80, "fps", "  recon 0"},
          shape{100, "frames/s", "  reconnected 0"}, shape{140, "frames/s", "  0 reconnections"}}) {
        tools::terminal screen(ZUCAM_TOOL, {"watch", address_of(camera), "--password", ""},
                               each.columns);
        EXPECT_TRUE(screen.shows(each.last)) << each.columns;
        screen.send_signal(SIGINT);
        EXPECT_EQ(screen.exit_status(), 130);
        EXPECT_LT(widest_live_line(screen.seen(), each.unit), each.columns);
    }
}

TEST(ZucamWatch, AReaderThatHasHadEnoughLeavesNoLiveLineBehind)
{
    zucam::camera camera(tools::small_pictures());
    const std::string line = "\"$ZUCAM\" watch " + address_of(camera) +
                             " --password '' | { sed '/link down/q'; exec <&-; echo enough; }";
    tools::terminal screen("/bin/sh", {"-c", line});
    ASSERT_TRUE(screen.shows("frames/s"));
    zucam::faults away;
    away.refuse = true;
    camera.set_faults(away);
    camera.drop_links();
    ASSERT_TRUE(screen.shows("enough"));
    camera.set_faults({}); // the link comes back, and nobody reads it
    EXPECT_EQ(screen.exit_status(), 0);
    const std::size_t live = screen.seen().rfind("frames/s");
    ASSERT_NE(live, std::string::npos);
    EXPECT_NE(screen.seen().find("\r\033[K", live), std::string::npos);
}

TEST(ZucamWatch, QuietAndJsonHaveNoLiveLine)
{
    const zucam::camera camera(tools::small_pictures());
    for (const char* const option : {"-q", "--json"}) {
        tools::terminal screen(
            ZUCAM_TOOL, {"watch", address_of(camera), "--password", "", "--count", "20", option});
        EXPECT_EQ(screen.exit_status(), 0) << screen.seen();
        EXPECT_EQ(screen.seen().find("\033["), std::string::npos) << option;
    }
}

TEST(ZucamRecordScreen, ARecordingShowsItsProgress)
{
    const zucam::camera camera(tools::small_pictures());
    const tools::scratch files;
    tools::terminal screen(ZUCAM_TOOL,
                           {"record", address_of(camera), files / "x.mp4", "--password", ""});
    EXPECT_TRUE(screen.shows("\033[Krecording "));
    EXPECT_TRUE(screen.shows(" Mbit/s"));
    screen.type("\x03"); // the interrupt key
    EXPECT_EQ(screen.exit_status(), 130);
    EXPECT_EQ(tools::complaints(files / "x.mp4"), "");
}

} // namespace
