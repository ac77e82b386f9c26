// zucam-sim as a program: its lines, its signals, its statuses, its refusals.
// Each test starts the built program with a port of the system's choice, reads
// the line that tells the port, and ends it. What the camera does beyond that
// is tested in its own process elsewhere.
#include "camera_client.h"
#include "eventually.h"
#include "program_runner.h"
#include "scratch.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using tools::camera_client;
using tools::from_hex;
using tools::program;

std::vector<std::string> with_numbers(std::vector<std::string> more)
{
    more.insert(more.end(), {"--numbered", "64", "--fps", "100"});
    return more;
}

// Runs it to its end; the one line that it leaves on standard error.
std::string refusal_of(const std::vector<std::string>& arguments)
{
    program sim(ZUCAM_SIM, arguments);
    EXPECT_EQ(sim.exit_status(), 2);
    EXPECT_EQ(sim.output(), "");
    const std::string line = sim.errors();
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    return line;
}

TEST(CameraProgram, ItPrintsOneLineAndServes)
{
    program sim(ZUCAM_SIM, {});
    const std::uint16_t port = tools::port_in(sim.next_line());
    ASSERT_NE(port, 0);
    camera_client client(port);
    client.send_start(3);
    EXPECT_TRUE(tools::is_key_frame(client.next_with_flag("KTVF")));
    sim.send_signal(SIGTERM);
    EXPECT_EQ(sim.exit_status(), 0);
    EXPECT_EQ(sim.errors(), "");
    EXPECT_TRUE(client.ends());
}

TEST(CameraProgram, SigintEndsItTooWhileAPeerDoesNotRead)
{
    program sim(ZUCAM_SIM, {"--numbered", "100000", "--fps", "500"});
    camera_client client(tools::port_in(sim.next_line()));
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("KTVF"));
    sim.send_signal(SIGINT);
    EXPECT_EQ(sim.exit_status(), 0);
}

TEST(CameraProgram, Sigusr1DropsTheLinksAndNothingElse)
{
    program sim(ZUCAM_SIM, with_numbers({}));
    const std::uint16_t port = tools::port_in(sim.next_line());
    camera_client first(port);
    first.send_start(0);
    ASSERT_TRUE(first.next());
    sim.send_signal(SIGUSR1);
    EXPECT_TRUE(first.ends());
    camera_client second(port);
    second.send_start(0);
    EXPECT_TRUE(second.next_with_flag("KTVF"));
}

TEST(CameraProgram, SeveralCamerasHavePortsAndSeedsOfTheirOwn)
{
    program sim(ZUCAM_SIM, with_numbers({"--cameras", "3"}));
    std::vector<tools::bytes> frames;
    for (int i = 0; i < 3; ++i) {
        camera_client client(tools::port_in(sim.next_line(), i));
        ASSERT_TRUE(client.connected());
        client.send_start(0);
        frames.push_back(client.next_with_flag("KTVF").whole);
    }
    EXPECT_NE(frames[0], frames[1]);
    EXPECT_NE(frames[1], frames[2]);
}

TEST(CameraProgram, OptionsReachTheCamera)
{
    program sim(ZUCAM_SIM, {"--size", "320x240", "--fps", "50", "--bitrate", "500", "--audio",
                            "alaw", "--source", "testsrc", "--gop", "3"});
    camera_client client(tools::port_in(sim.next_line()));
    client.send_start(0);
    EXPECT_EQ(client.next_with_flag("FSYS").whole,
              from_hex("00110000 1c000000 00000000 46535953 40010000 f0000000 01000000 00000000 "
                       "32000000 f4010000"));
    std::string keys;
    for (int i = 0; i < 7; ++i) {
        keys += tools::is_key_frame(client.next_with_flag("KTVF")) ? 'K' : '-';
    }
    EXPECT_EQ(keys, "K--K--K");
}

TEST(CameraProgram, FaultsCanBeAskedForByOption)
{
    program sim(ZUCAM_SIM, with_numbers({"--never-answer", "start", "--never-answer", "0x1031",
                                         "--wrong-wait-port", "0xffff", "--unknown-every", "1",
                                         "--drop-after-messages", "4"}));
    camera_client client(tools::port_in(sim.next_line()));
    client.send_start(0);
    client.send(from_hex("31100000 08000000 39300000 02000000 05000000"));
    client.send(from_hex("21100000 00000000 39300000 21100000 00000000 39300000"));
    EXPECT_EQ(client.next().type(), 0x7a01U);
    EXPECT_EQ(client.next().whole, from_hex("22100000 00000000 ffff0000"));
    EXPECT_EQ(client.next().type(), 0x7a01U);
    EXPECT_EQ(client.next().type(), 0x1022U);
    EXPECT_TRUE(client.ends());
}

TEST(CameraProgram, TheJournalFileCanBeReadWhileItRuns)
{
    const tools::scratch files;
    const std::string name = files / "journal";
    program sim(ZUCAM_SIM, with_numbers({"--journal", name}));
    camera_client client(tools::port_in(sim.next_line()));
    client.send(from_hex("31100000 08000000 39300000 02000000 05000000"));
    ASSERT_TRUE(client.next_of_type(0x1032));

    std::ifstream file(name);
    std::string connected;
    std::string request;
    std::getline(file, connected);
    std::getline(file, request);
    const std::string start = R"(\{"time_us":[0-9]+,"camera":0,"link":1,"event":)";
    EXPECT_THAT(connected, testing::MatchesRegex(start + R"("connected"\})"));
    EXPECT_THAT(request, testing::MatchesRegex(start + R"("request","type":"0x1031","name":"ptz",)"
                                                       R"("wait_port":12345,)"
                                                       R"("payload":"0200000005000000"\})"));
}

TEST(CameraProgram, HelpTellsEveryOptionAndEndsWell)
{
    program sim(ZUCAM_SIM, {"--help"});
    EXPECT_EQ(sim.exit_status(), 0);
    for (const char* const option : {"--listen",
                                     "--port",
                                     "--cameras",
                                     "--journal",
                                     "--source",
                                     "--size",
                                     "--fps",
                                     "--bitrate",
                                     "--gop",
                                     "--audio",
                                     "--numbered",
                                     "--seed",
                                     "--refuse",
                                     "--accept-and-close",
                                     "--silent",
                                     "--drop-after-messages",
                                     "--drop-after",
                                     "--drop-times",
                                     "--drop-with-reset",
                                     "--split",
                                     "--header-apart",
                                     "--delay-answers",
                                     "--never-answer",
                                     "--wrong-wait-port",
                                     "--unknown-every",
                                     "--odd-length",
                                     "--odd-length-after",
                                     "--oob-after"}) {
        EXPECT_NE(sim.output().find(std::string(option) + " "), std::string::npos) << option;
    }
}

TEST(CameraProgram, WrongValuesGetOneLineThatSaysWhatIsRight)
{
    EXPECT_EQ(refusal_of({"--port", "65536"}), "zucam-sim: --port: '65536' is not possible; give "
                                               "a port (0 = any free one), 0 to 65535\n");
    EXPECT_NE(refusal_of({"--port", "80x"}).find("0 to 65535"), std::string::npos);
    EXPECT_NE(refusal_of({"--size", "13x4"}).find("such as 1280x720"), std::string::npos);
    EXPECT_NE(refusal_of({"--fps", "121"}).find("1 to 120"), std::string::npos);
    EXPECT_NE(refusal_of({"--audio", "mp3"}).find("ulaw, alaw or off"), std::string::npos);
    EXPECT_NE(refusal_of({"--drop-after", "soon"}).find("seconds"), std::string::npos);
    EXPECT_NE(refusal_of({"--never-answer", "me"}).find("heartbeat"), std::string::npos);
    EXPECT_NE(refusal_of({"--source", "no such thing"}).find("testsrc2"), std::string::npos);
    EXPECT_NE(refusal_of({"--listen", "here"}).find("127.0.0.1"), std::string::npos);
    EXPECT_NE(refusal_of({"--port", "65535", "--cameras", "2"}).find("--port"), std::string::npos);
}

TEST(CameraProgram, UnknownOptionsAndMissingValuesAreRefused)
{
    EXPECT_NE(refusal_of({"--colour"}).find("--colour"), std::string::npos);
    EXPECT_NE(refusal_of({"--port"}).find("--port"), std::string::npos);
    EXPECT_NE(refusal_of({"surplus"}).find("surplus"), std::string::npos);
    EXPECT_NE(refusal_of({"--journal", "/nowhere/at/all"}).find("journal"), std::string::npos);
}

TEST(CameraProgram, APortInUseIsRefused)
{
    program first(ZUCAM_SIM, with_numbers({}));
    const std::uint16_t port = tools::port_in(first.next_line());
    const std::string line = refusal_of(with_numbers({"--port", std::to_string(port)}));
    EXPECT_NE(line.find("free port"), std::string::npos);
}

} // namespace
