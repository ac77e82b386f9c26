// What the examples have in common: their options, what they say when something is wrong with one,
// and how they wait. Each is the program that is built, run as a process of its own.
#include "camera_client.h"
#include "program_runner.h"
#include "virtual_camera/camera.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace
{

using testing::HasSubstr;
using tools::program;

using texts = std::vector<std::string>;

zucam::camera_options plain()
{
    zucam::camera_options options;
    options.numbered_size = 100;
    return options;
}

texts to_camera(const zucam::camera& camera, texts more)
{
    more.insert(more.end(), {"--host", "127.0.0.1", "--port", std::to_string(camera.port())});
    return more;
}

std::string refusal_of(const char* path, const texts& arguments)
{
    program run(path, arguments);
    EXPECT_EQ(run.exit_status(), 2);
    EXPECT_EQ(run.output(), "");
    return run.errors();
}

TEST(ExamplesOptions, AnOptionThatIsUnknownOrLacksItsValueIsNamed)
{
    const std::string end = " (--help tells all)\n";
    EXPECT_EQ(refusal_of(LIVE_VIEW, {"--verbose", "--hots", "1"}),
              "live_view: --hots is no option of this program" + end);
    EXPECT_EQ(refusal_of(LIVE_VIEW, {"--verbose", "-xy"}),
              "live_view: -xy is no option of this program" + end);
    EXPECT_EQ(refusal_of(PTZ, {"--port", "80", "--host"}), "ptz: --host lacks its value" + end);
    EXPECT_EQ(refusal_of(SETTINGS, {"--host", "127.0.0.1", "more"}),
              "settings: more is surplus, only options are taken" + end);
}

TEST(ExamplesOptions, AnOptionOfAnotherExampleIsRefused)
{
    const std::vector<std::pair<const char*, texts>> foreign = {
        {LIVE_VIEW, {"--bitrate", "--stay"}},
        {SETTINGS, {"--seconds", "--out", "--stay"}},
        {PTZ, {"--seconds", "--out", "--bitrate"}},
        {EVENTS, {"--out", "--bitrate", "--stay"}}};
    for (const auto& [path, options] : foreign) {
        for (const std::string& option : options) {
            EXPECT_THAT(refusal_of(path, {"--host", "127.0.0.1", "--port", "80", option, "5"}),
                        HasSubstr(": " + option + " is no option of this program"));
        }
    }
}

TEST(ExamplesOptions, HelpTellsWhatTheProgramTakes)
{
    program help(PTZ, {"--help"});
    EXPECT_EQ(help.exit_status(), 0);
    EXPECT_THAT(help.output(), HasSubstr("  --stay "));
    EXPECT_EQ(help.output().find("--out"), std::string::npos);
}

TEST(ExamplesOptions, AFailureTellsTheProgramAndBothReasonsItMayHave)
{
    zucam::camera_options options = plain();
    options.initial_faults.never_answer = {0x1041};
    const zucam::camera camera(options);
    program run(PTZ, to_camera(camera, {}));
    EXPECT_EQ(run.exit_status(), 4);
    EXPECT_EQ(run.errors(), "ptz: store preset 1: failed, link down or no answer (--verbose tells "
                            "more)\n");
}

// Stops the only child of this process and lets it go on, as a shell does.
void stop_and_continue(const program& run)
{
    int status = 0;
    run.send_signal(SIGSTOP);
    ASSERT_GT(waitpid(-1, &status, WUNTRACED), 0);
    ASSERT_TRUE(WIFSTOPPED(status));
    run.send_signal(SIGCONT);
}

TEST(ExamplesOptions, EventsWaitsOnAfterItWasStopped)
{
    for (const texts& limit : {texts{}, texts{"--seconds", "600"}}) {
        zucam::camera camera(plain());
        program run(EVENTS, to_camera(camera, limit));
        EXPECT_THAT(run.next_line(), HasSubstr("logged in to 127.0.0.1:"));
        EXPECT_EQ(run.next_line(), "set the event callback: done");
        EXPECT_THAT(run.next_line(), HasSubstr("heartbeat answered")); // it waits by now
        stop_and_continue(run);
        for (int i = 0; i < 2; ++i) {
            EXPECT_THAT(run.next_line(), HasSubstr("event of "));
        }
        run.send_signal(SIGINT);
        EXPECT_EQ(run.exit_status(), 0) << run.errors();
    }
}

} // namespace
