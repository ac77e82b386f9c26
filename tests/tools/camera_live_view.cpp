// The live view example against the virtual camera: what it keeps decodes, also
// across a lost link, and its exit status says what happened. The program is the
// one that is built, run as a process of its own; the camera is in this process, so
// that a test can drop its links and read its journal.
#include "camera_client.h"
#include "h264_decoder.h"
#include "program_runner.h"
#include "scratch.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/stamp.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>

namespace
{

using tools::bytes;
using tools::program;

zucam::camera_options small()
{
    zucam::camera_options options;
    options.width = 320;
    options.height = 180;
    return options;
}

std::vector<std::string> to_camera(const zucam::camera& camera, std::vector<std::string> more)
{
    more.insert(more.end(), {"--host", "127.0.0.1", "--port", std::to_string(camera.port())});
    return more;
}

class kept_file
{
public:
    const std::string& name() const
    {
        return name_;
    }

    // The access units: each begins at parameter sets or, without them, at its stamp.
    std::vector<bytes> access_units() const
    {
        std::ifstream file(name_, std::ios::binary);
        const bytes all{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::vector<bytes> units;
        bool had_slice = true;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (i + 4 < all.size() && all[i] == 0 && all[i + 1] == 0 &&
                (all[i + 2] == 1 || (all[i + 2] == 0 && all[i + 3] == 1))) {
                const unsigned type = all[i + (all[i + 2] == 1 ? 3 : 4)] & 31U;
                if (had_slice && type > 5) {
                    units.emplace_back();
                    had_slice = false;
                }
                had_slice = had_slice || type <= 5;
                const std::size_t code = all[i + 2] == 1 ? 3 : 4;
                units.back().insert(units.back().end(), all.begin() + static_cast<long>(i),
                                    all.begin() + static_cast<long>(i + code));
                i += code - 1;
                continue;
            }
            units.back().push_back(all[i]);
        }
        return units;
    }

private:
    const tools::scratch folder_;
    const std::string name_ = folder_ / "kept";
};

struct progress {
    unsigned long frames = 0;
    unsigned long losses = 0; // of the link
};

// What its live line tells, once it tells of so much; less when its lines end before.
progress told(program& view, const progress& wanted)
{
    const std::regex shape(".* ([0-9]+) frames .* down ([0-9]+) .*");
    progress so_far;
    while (so_far.frames < wanted.frames || so_far.losses < wanted.losses) {
        const std::string line = view.next_error_line();
        std::smatch found;
        if (!std::regex_match(line, found, shape)) {
            ADD_FAILURE() << "no live line: " << line;
            break;
        }
        so_far = {std::stoul(found[1]), std::stoul(found[2])};
    }
    return so_far;
}

TEST(CameraLiveView, WhatItKeepsAcrossALostLinkDecodesWithoutAnError)
{
    constexpr unsigned long some = 20;
    zucam::camera_options options = small();
    options.gop = 25;
    zucam::camera camera(options);
    const kept_file kept;
    program view(LIVE_VIEW, to_camera(camera, {"--out", kept.name()}));
    const unsigned long before = told(view, {some, 0}).frames;
    camera.drop_links();
    // Behind a loss nothing is kept before a key frame.
    const unsigned long behind = told(view, {0, 1}).frames;
    ASSERT_GE(told(view, {behind + options.gop + some, 1}).losses, 1U);
    view.send_signal(SIGINT);
    EXPECT_EQ(view.exit_status(), 0) << view.errors();

    tools::h264_decoder decoder;
    std::uint64_t sequence = 0;
    int gaps = 0;
    const std::vector<bytes> units = kept.access_units();
    EXPECT_GE(units.size(), before + some);
    for (const bytes& unit : units) {
        ASSERT_NO_THROW(decoder.decode(unit));
        const auto stamp = zucam::find_stamp(unit.data(), unit.size());
        ASSERT_TRUE(stamp);
        gaps += stamp->sequence == sequence ? 0 : 1;
        sequence = stamp->sequence + 1;
    }
    EXPECT_LE(gaps, 2) << "frames are missing where the link was lost and nowhere else";
}

TEST(CameraLiveView, ItAsksForWhatItNeedsAndStopsInTheEnd)
{
    const zucam::camera camera(small());
    program view(LIVE_VIEW, to_camera(camera, {}));
    EXPECT_GT(told(view, {1, 0}).frames, 0U);
    view.send_signal(SIGINT);
    EXPECT_EQ(view.exit_status(), 0) << view.errors();
    EXPECT_EQ(camera.received(0x1001), 1U);
    EXPECT_EQ(camera.received(0x1051), 1U);
    EXPECT_EQ(camera.received(0x1011), 1U);
    EXPECT_NE(view.output().find("described as: 320 x 180, 25 frames/s"), std::string::npos);
}

TEST(CameraLiveView, ItTellsWhenNobodyIsThere)
{
    zucam::camera_options options = small();
    options.initial_faults.refuse = true;
    const zucam::camera camera(options);
    program view(LIVE_VIEW, to_camera(camera, {}));
    EXPECT_EQ(view.exit_status(), 3);
    EXPECT_NE(view.errors().find("no login to 127.0.0.1"), std::string::npos);
}

TEST(CameraLiveView, ItTellsWhenTheStreamIsNotStarted)
{
    zucam::camera_options options = small();
    options.initial_faults.never_answer = {0x1001};
    const zucam::camera camera(options);
    program view(LIVE_VIEW, to_camera(camera, {"--seconds", "1"}));
    EXPECT_EQ(view.exit_status(), 4);
}

TEST(CameraLiveView, ItTellsWhenNoVideoCame)
{
    zucam::camera_options options = small();
    options.source = "color=duration=0.0001,select=0"; // a scene that never shows anything
    const zucam::camera camera(options);
    program view(LIVE_VIEW, to_camera(camera, {"--seconds", "1"}));
    EXPECT_EQ(view.exit_status(), 5);
}

TEST(CameraLiveView, ItTellsWhenTheFileCannotBeWritten)
{
    const zucam::camera camera(small());
    program view(LIVE_VIEW, to_camera(camera, {"--out", "/nowhere/at/all"}));
    EXPECT_EQ(view.exit_status(), 1);
    program full(LIVE_VIEW, to_camera(camera, {"--out", "/dev/full"}));
    EXPECT_GT(told(full, {1, 0}).frames, 0U);
    full.send_signal(SIGINT);
    EXPECT_EQ(full.exit_status(), 1);
}

TEST(CameraLiveView, WrongOptionsGetOneLine)
{
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"--host", "127.0.0.1"},
        {"--host", "camera.example", "--port", "80"},
        {"--host", "127.0.0.1", "--port", "0"},
        {"--host", "127.0.0.1", "--port", "80", "--seconds", "-1"},
        {"--host", "127.0.0.1", "--port", "80", "--colour"},
        {"--host", "127.0.0.1", "--port", "80", "surplus"}};
    for (const auto& arguments : wrong) {
        program view(LIVE_VIEW, arguments);
        EXPECT_EQ(view.exit_status(), 2);
        const std::string line = view.errors();
        EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    }
}

} // namespace
