// How zucam-sim starts, and does not: what a refused start leaves alone, what can interrupt one,
// and what is tried before the program says that it listens. And how it ends where something that
// it waits for never comes. The program is the one that is built.
#include "camera_client.h"
#include "eventually.h"
#include "program_runner.h"
#include "scratch.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using tools::camera_client;
using tools::from_hex;
using tools::program;
using tools::scratch;

TEST(CameraStart, ARefusedStartLeavesTheJournalOfBeforeAlone)
{
    const scratch files;
    const std::string journal = files.write("journal", "what was there\n");
    program first(ZUCAM_SIM, {"--numbered", "64"});
    const std::uint16_t port = tools::port_in(first.next_line());
    program second(ZUCAM_SIM,
                   {"--numbered", "64", "--port", std::to_string(port), "--journal", journal});
    EXPECT_EQ(second.exit_status(), 2);
    EXPECT_EQ(files.read("journal"), "what was there\n");
}

TEST(CameraStart, AJournalGoesOnBehindTheOneOfBefore)
{
    const scratch files;
    const std::string journal = files.write("journal", "what was there\n");
    program sim(ZUCAM_SIM, {"--numbered", "64", "--journal", journal});
    camera_client client(tools::port_in(sim.next_line()));
    client.send(from_hex("21100000 00000000 00000000"));
    ASSERT_TRUE(client.next());
    EXPECT_THAT(files.read("journal"), testing::StartsWith("what was there\n{"));
    EXPECT_THAT(files.read("journal"), HasSubstr("heartbeat"));
}

TEST(CameraStart, AJournalThatCannotBeWrittenIsToldOnce)
{
    program sim(ZUCAM_SIM, {"--numbered", "64", "--journal", "/dev/full"});
    camera_client client(tools::port_in(sim.next_line()));
    for (int i = 0; i < 3; ++i) {
        client.send(from_hex("21100000 00000000 00000000"));
        ASSERT_TRUE(client.next());
    }
    sim.send_signal(SIGTERM);
    EXPECT_EQ(sim.exit_status(), 0);
    EXPECT_EQ(sim.errors(), "zucam: the journal lacks lines, it cannot be written: No space left "
                            "on device\n");
}

TEST(CameraStart, AJournalThatMayNotGrowIsToldAndTheCameraGoesOn)
{
    const scratch files;
    program sim(ZUCAM_SIM, {"--numbered", "64", "--journal", files / "journal"});
    const std::uint16_t port = tools::port_in(sim.next_line());
    rlimit usual{};
    ASSERT_EQ(prlimit(sim.pid(), RLIMIT_FSIZE, nullptr, &usual), 0);
    const rlimit small = {100, usual.rlim_max};
    ASSERT_EQ(prlimit(sim.pid(), RLIMIT_FSIZE, &small, nullptr), 0);
    camera_client client(port);
    for (int i = 0; i < 3; ++i) {
        client.send(from_hex("21100000 00000000 00000000"));
        ASSERT_TRUE(client.next());
    }
    ASSERT_EQ(prlimit(sim.pid(), RLIMIT_FSIZE, &usual, nullptr), 0);
    sim.send_signal(SIGTERM);
    EXPECT_EQ(sim.exit_status(), 0);
    EXPECT_EQ(sim.errors(),
              "zucam: the journal lacks lines, it cannot be written: File too large\n");
}

// Stands at the other end of a pipe, from when somebody reads from it, and writes nothing: who
// reads waits.
class silent_feeder
{
public:
    explicit silent_feeder(const std::string& pipe)
    {
        EXPECT_TRUE(support::eventually([&] {
            end_ = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return end_ >= 0;
        })) << "somebody reads from it";
    }
    ~silent_feeder()
    {
        (void)close(end_);
    }
    silent_feeder(const silent_feeder&) = delete;
    silent_feeder& operator=(const silent_feeder&) = delete;

private:
    int end_ = -1;
};

TEST(CameraStart, ASourceThatNeverShowsAnythingCanBeInterrupted)
{
    const scratch files;
    const std::string pipe = files / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    program sim(ZUCAM_SIM, {"--source", pipe});
    const silent_feeder feeder(pipe);
    sim.send_signal(SIGINT);
    EXPECT_EQ(sim.exit_status(), 1000 + SIGINT);
}

bool sleeps(pid_t who)
{
    std::ifstream status("/proc/" + std::to_string(who) + "/status");
    const std::string all{std::istreambuf_iterator<char>(status), {}};
    return all.find("State:\tS") != std::string::npos;
}

TEST(CameraStart, AJournalThatNobodyReadsCanBeInterrupted)
{
    const scratch files;
    const std::string pipe = files / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    program sim(ZUCAM_SIM, {"--numbered", "64", "--journal", pipe});
    ASSERT_TRUE(support::eventually([&] { return sleeps(sim.pid()); })) << "it opens the journal";
    sim.send_signal(SIGTERM);
    EXPECT_EQ(sim.exit_status(), 1000 + SIGTERM);
}

// The picture has become a pipe that brings nothing by the time that somebody watches.
TEST(CameraStart, ASecondSignalEndsItWhileAStreamWaitsForItsSource)
{
    const scratch files;
    const std::string source = files.write("source", "P6\n2 2\n255\n" + std::string(12, 'x'));
    program sim(ZUCAM_SIM, {"--source", source});
    const std::uint16_t port = tools::port_in(sim.next_line());
    ASSERT_NE(port, 0);
    ASSERT_EQ(unlink(source.c_str()), 0);
    ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
    camera_client client(port);
    client.send_start(0);
    const silent_feeder feeder(source);
    sim.send_signal(SIGTERM);
    EXPECT_TRUE(client.ends()) << "the first signal has been heard";
    sim.send_signal(SIGUSR1);
    sim.send_signal(SIGTERM);
    EXPECT_EQ(sim.exit_status(), 1000 + SIGTERM);
}

TEST(CameraStart, ACodecThatIsNotThereIsRefused)
{
    const char* const before = std::getenv("ASAN_OPTIONS");
    const std::string more = before == nullptr ? "" : std::string(":") + before;
    (void)setenv("ASAN_OPTIONS", ("verify_asan_link_order=0" + more).c_str(), 1);
    (void)setenv("LD_PRELOAD", WITHOUT_H265, 1);
    program sim(ZUCAM_SIM, {"--codec", "h265"});
    EXPECT_EQ(sim.exit_status(), 2);
    EXPECT_EQ(sim.output(), "");
    EXPECT_EQ(sim.errors(), "zucam-sim: --codec: the encoder libx265 does not work: this FFmpeg "
                            "was built without it\n");
    program other(ZUCAM_SIM, {"--codec", "h264"});
    EXPECT_NE(tools::port_in(other.next_line()), 0);
}

} // namespace
