// The password: where it comes from, and that it is nowhere to be seen.
#include "eventually.h"
#include "zucam_runner.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace
{

using support::eventually;
using testing::HasSubstr;
using tools::address_of;
using tools::ended;

const std::string secret = "hunter2-secret";

// ---- where it must not be ----

TEST(ZucamSecrets, NotEvenTheTraceTellsThePassword)
{
    const zucam::camera camera(tools::small_pictures());
    const std::string at = address_of(camera);
    const std::vector<std::string> lines = {
        "\"$ZUCAM\" info " + at + " -vv --password " + secret,
        "\"$ZUCAM\" preset list " + at + " -vv --password=" + secret,
        "ZUCAM_PASSWORD=" + secret + " \"$ZUCAM\" preset list " + at + " -vv"};
    for (const std::string& line : lines) {
        const ended result = tools::shell("exec 2>&1; " + line);
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_THAT(result.out, HasSubstr("zucam: library: ")) << "there is a trace";
        EXPECT_EQ(result.out.find(secret), std::string::npos) << line;
    }
}

TEST(ZucamSecrets, RefusalsAndFailuresDoNotTellItEither)
{
    const std::vector<std::vector<std::string>> table = {
        {"info", "--password", secret, secret + ".example", "--cameras", "/nowhere"},
        {"info", "--password", secret, "127.0.0.1:1", secret},
        {"info", "--password=" + secret, "127.0.0.1", "--timeout", secret},
        {"record", "--password", secret, "127.0.0.1:1", secret + ".mp4"},
        {"info", "--pasword", secret, "127.0.0.1"},
        {"info", "127.0.0.1", "--pasword=" + secret},
        {"--password", secret, secret},
        {"info", "--password", secret + "-too-long", "127.0.0.1"}};
    for (const auto& arguments : table) {
        const ended result = tools::zucam(arguments);
        EXPECT_NE(result.status, 0);
        EXPECT_EQ((result.out + result.err).find(secret), std::string::npos) << result.err;
    }
}

TEST(ZucamSecrets, NamesThatTheUserGaveDoNotTellItOnStandardOutput)
{
    const zucam::camera camera(tools::small_pictures());
    const tools::scratch files;
    const std::string list =
        files.write("cameras", "[" + secret + "]\naddress = " + address_of(camera) +
                                   "\npassword = " + secret + "\n");
    const std::vector<std::vector<std::string>> table = {
        {"watch", secret, "--count", "10", "--cameras", list},
        {"info", secret, "--cameras", list},
        {"record", secret, files / (secret + ".mkv"), "--count", "5", "--cameras", list},
        {"record", secret, files / (secret + ".ts"), "--count", "5", "--cameras", list, "--json"},
        {"snapshot", secret, files / (secret + ".jpg"), "--cameras", list}};
    for (const auto& arguments : table) {
        const ended result = tools::zucam(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, HasSubstr("***"));
        EXPECT_EQ((result.out + result.err).find(secret), std::string::npos) << result.out;
    }
    EXPECT_GT(tools::size_of(files / (secret + ".mkv")), 0U) << "the file's own name stays";
}

TEST(ZucamSecrets, TheOneOfTheEnvironmentIsBlankedBeforeItIsUsed)
{
    const ended result = tools::shell("ZUCAM_PASSWORD=" + secret + " \"$ZUCAM\" record 127.0.0.1 " +
                                      secret + ".avi");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("'***.avi'"));
}

TEST(ZucamSecrets, AShortOneIsBlankedAsAWordOnly)
{
    const ended result = tools::zucam({"record", "--password", "in", "127.0.0.1", "a in b.avi"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("'a *** b.avi' is not possible; give")) << "'possible' stays";
    EXPECT_EQ(result.err.find(" in "), std::string::npos);
}

TEST(ZucamSecrets, TheSystemDoesNotShowIt)
{
    const zucam::camera camera(tools::small_pictures());
    for (const std::string& option : {std::string("--password"), "--password=" + secret}) {
        std::vector<std::string> arguments = {"watch", address_of(camera), option};
        if (option == "--password") {
            arguments.push_back(secret);
        }
        tools::program watching(ZUCAM_TOOL, arguments);
        ASSERT_THAT(watching.next_line(), HasSubstr("connected"));
        std::ifstream file("/proc/" + std::to_string(watching.pid()) + "/cmdline");
        const std::string shown{std::istreambuf_iterator<char>(file),
                                std::istreambuf_iterator<char>()};
        EXPECT_THAT(shown, HasSubstr("--password"));
        EXPECT_EQ(shown.find("hunter2"), std::string::npos);
        watching.send_signal(SIGINT);
        EXPECT_EQ(watching.exit_status(), 130);
    }
}

// ---- the question ----

TEST(ZucamSecrets, AtATerminalItIsAskedForAndNotShown)
{
    const zucam::camera camera(tools::no_pictures());
    tools::terminal screen(ZUCAM_TOOL, {"preset", "list", address_of(camera), "-vv"});
    ASSERT_TRUE(screen.shows("password of admin at " + address_of(camera)));
    EXPECT_TRUE(eventually([&] { return !screen.echoes(); }));
    screen.type(secret + "\n");
    EXPECT_EQ(screen.exit_status(), 0);
    EXPECT_EQ(screen.seen().find("hunter2"), std::string::npos);
}

TEST(ZucamSecrets, AnInterruptedQuestionLeavesTheTerminalAsItWas)
{
    tools::terminal screen(ZUCAM_TOOL, {"info", "127.0.0.1", "--user", "me"});
    ASSERT_TRUE(screen.shows("password of me at 127.0.0.1:9000"));
    EXPECT_TRUE(eventually([&] { return !screen.echoes(); }));
    screen.type("\x03");
    EXPECT_EQ(screen.exit_status(), 130);
    EXPECT_TRUE(screen.echoes());
}

TEST(ZucamSecrets, NobodyIsAskedWithoutATerminal)
{
    const zucam::camera camera(tools::no_pictures());
    const ended result =
        tools::shell("exec \"$ZUCAM\" config get " + address_of(camera) + " video < /dev/null");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

} // namespace
