// The reachability probe, with a `ping` of the test's own.
//
// The fake is this very program: a link named "ping" in a directory of its own, first (and alone)
// on PATH. Started under that name it writes its arguments down and ends as the environment tells
// it, before any test begins. Everything runs on one thread; lines that the child writes come
// through a pipe, since it may or may not share the parent's memory.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_story.h"
#include "log_tap.h"
#include "ping.h"
#include "process_probe.h"
#include "seam.h"

using namespace support;
using testing::ElementsAre;

namespace
{

// What the program does when it is started as "ping".
__attribute__((constructor)) void be_ping(int argc, char** argv)
{
    const char* journal = std::getenv("FAKE_PING_JOURNAL");
    if (argc == 0 || std::strcmp(argv[0], "ping") != 0 || journal == nullptr) {
        return;
    }
    std::ofstream out(journal);
    for (int i = 0; i < argc; i++) {
        out << argv[i] << '\n';
    }
    out.close();
    const int how = std::atoi(std::getenv("FAKE_PING_END"));
    if (how < 0) {
        raise(-how);
    }
    _exit(how);
}

class ping_stand : public testing::Test
{
protected:
    ping_stand()
    {
        std::string pattern = testing::TempDir() + "fake_ping_XXXXXX";
        directory = mkdtemp(pattern.data());
        setenv("FAKE_PING_JOURNAL", journal().c_str(), 1);
        setenv("PATH", directory.c_str(), 1);
    }
    ~ping_stand() override
    {
        unlink(journal().c_str());
        unlink((directory + "/ping").c_str());
        rmdir(directory.c_str());
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // no child, no zombie
        EXPECT_EQ(errno, ECHILD);
        EXPECT_EQ(before.left_over(), "");
    }

    // Puts a ping on the path that ends with this exit code, or by a signal when it is negative.
    void install(int how) const
    {
        char self[4096] = {};
        ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
        ASSERT_EQ(symlink(self, (directory + "/ping").c_str()), 0);
        setenv("FAKE_PING_END", std::to_string(how).c_str(), 1);
    }
    std::string journal() const
    {
        return directory + "/journal";
    }
    std::vector<std::string> arguments() const
    {
        std::ifstream in(journal());
        std::vector<std::string> out;
        for (std::string line; std::getline(in, line);) {
            out.push_back(line);
        }
        return out;
    }

    const inventory before;
    std::string directory;
};

class Ping : public ping_stand
{
};

class PingLines : public ping_stand, public with_level
{
};

told status(const std::string& message)
{
    return {log_at_error_levels, 7, message};
}

constexpr char who[] = "ping_status";

// What the library has logged, also in its child, through a pipe.
int line_pipe[2] = {-1, -1};

void write_down(int type, const char* /*line*/)
{
    const std::string text = std::to_string(type) + " " + dbgout_info;
    EXPECT_EQ(write(line_pipe[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string lines_of_a_probe(int level)
{
    EXPECT_EQ(pipe2(line_pipe, O_CLOEXEC | O_NONBLOCK), 0);
    ZU_NET_DEV_SetLogCallback(write_down);
    set_log_level(level);
    EXPECT_EQ(ping_status("127.0.0.1"), -1);
    set_log_level(0);
    char text[1024] = {};
    const ssize_t size = read(line_pipe[0], text, sizeof(text));
    close(line_pipe[0]);
    close(line_pipe[1]);
    return {text, size > 0 ? static_cast<size_t>(size) : 0};
}

} // namespace

// ---- results -----------------------------------------------------------------------------------

TEST_F(Ping, SucceedsWhenTheProgramDoes)
{
    install(0);
    EXPECT_EQ(ping_status("127.0.0.1"), 0);
}

TEST_F(Ping, FailsWhenTheProgramFails)
{
    install(1);
    EXPECT_EQ(ping_status("127.0.0.1"), -1);
}

TEST_F(Ping, FailsWhenTheProgramIsKilled)
{
    install(-SIGKILL);
    EXPECT_EQ(ping_status("127.0.0.1"), -1);
}

TEST_F(Ping, FailsWithoutAProgram)
{
    EXPECT_EQ(ping_status("127.0.0.1"), -1);
}

TEST_F(Ping, FailsWithoutAChild)
{
    install(0);
    const fault no_child("vfork", EAGAIN);
    EXPECT_EQ(ping_status("127.0.0.1"), -1);
    EXPECT_THAT(arguments(), testing::IsEmpty());
}

TEST_F(Ping, AsksForOneSecondAndNamesTheAddress)
{
    install(0);
    ping_status("192.0.2.7");
    EXPECT_THAT(arguments(), ElementsAre("ping", "-w", "1", "192.0.2.7"));
}

TEST_F(Ping, HandsTheAddressOnAsItIs)
{
    install(0);
    ping_status("not an; address");
    EXPECT_THAT(arguments(), ElementsAre("ping", "-w", "1", "not an; address"));
}

TEST_F(Ping, CanBeRepeated)
{
    install(0);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(ping_status("127.0.0.1"), 0);
    }
}

// A child that can't run the program ends at once: the application's exit handlers are not its.
TEST_F(Ping, RunsNoExitHandlerInAChildThatCanNotRunTheProgram)
{
    static int handler_pipe[2];
    ASSERT_EQ(pipe2(handler_pipe, O_CLOEXEC | O_NONBLOCK), 0);
    std::atexit([] { [[maybe_unused]] const ssize_t written = write(handler_pipe[1], "x", 1); });

    EXPECT_EQ(ping_status("127.0.0.1"), -1);

    char byte;
    EXPECT_EQ(read(handler_pipe[0], &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(handler_pipe[0]);
    close(handler_pipe[1]);
}

// ---- lines -------------------------------------------------------------------------------------

TEST_P(PingLines, OfAnAnswer)
{
    install(0);
    const log_tap log(level);
    ping_status("127.0.0.1");
    EXPECT_TRUE(all_told(log, who, level, {trace("enter\n"), status("status: 0\n")}));
}

TEST_P(PingLines, OfAnExitCodeAsARawStatus)
{
    install(1);
    const log_tap log(level);
    ping_status("127.0.0.1");
    EXPECT_TRUE(all_told(log, who, level, {trace("enter\n"), status("status: 256\n")}));
}

TEST_P(PingLines, OfASignalAsARawStatus)
{
    install(-SIGKILL);
    const log_tap log(level);
    ping_status("127.0.0.1");
    EXPECT_TRUE(all_told(log, who, level, {trace("enter\n"), status("status: 9\n")}));
}

TEST_P(PingLines, OfAMissingChild)
{
    const fault no_child("vfork", EAGAIN);
    const log_tap log(level);
    ping_status("127.0.0.1");
    EXPECT_TRUE(all_told(log, who, level, {trace("enter\n"), error("vfork error\n")}));
}

TEST_P(PingLines, OfAMissingProgram)
{
    const std::string lines = lines_of_a_probe(level);

    if (level == 2) {
        EXPECT_EQ(lines, "7 enter\n0 execlp error\n7 status: 32512\n");
    } else if (level == 1) {
        EXPECT_EQ(lines, "0 execlp error\n7 status: 32512\n");
    } else {
        EXPECT_EQ(lines, "");
    }
}

INSTANTIATE_TEST_SUITE_P(AtEveryLevel, PingLines, all_levels(), level_name);
