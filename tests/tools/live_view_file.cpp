// The file that live_view keeps: when it is touched, when it stays empty, and that nothing is
// missing in it that came. The program is the one that is built; the camera is in this process.
#include "camera_client.h"
#include "camera_requests.h"
#include "eventually.h"
#include "program_runner.h"
#include "scratch.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/stamp.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace
{

using support::eventually;
using testing::HasSubstr;
using tools::bytes;
using tools::program;

zucam::camera_options small()
{
    zucam::camera_options options;
    options.width = 320;
    options.height = 180;
    return options;
}

class kept_file
{
public:
    std::vector<std::string> from(const zucam::camera& camera) const
    {
        return {"--out", name_, "--host", "127.0.0.1", "--port", std::to_string(camera.port())};
    }

    void write(const std::string& text) const
    {
        std::ofstream(name_) << text;
    }

    bytes content() const
    {
        std::ifstream file(name_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    // The numbers of the frames in it, from their stamps, which are NAL units of type 6. The
    // encoder writes a further one at its begin, behind which the first stamp is found a second
    // time.
    std::vector<std::uint64_t> frame_numbers() const
    {
        const bytes all = content();
        std::vector<std::uint64_t> numbers;
        for (std::size_t i = 0; i + 3 < all.size(); ++i) {
            if (all[i] == 0 && all[i + 1] == 0 && all[i + 2] == 1 && (all[i + 3] & 31U) == 6) {
                const auto stamp = zucam::find_stamp(all.data() + i, all.size() - i);
                numbers.push_back(stamp.value().sequence);
            }
        }
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        return numbers;
    }

private:
    const tools::scratch folder_;
    const std::string name_ = folder_ / "kept";
};

TEST(LiveViewFile, AFailedLoginLeavesTheFileOfBeforeAlone)
{
    zucam::camera_options options = small();
    options.initial_faults.refuse = true;
    const zucam::camera camera(options);
    const kept_file kept;
    kept.write("yesterday");
    program view(LIVE_VIEW, kept.from(camera));
    EXPECT_EQ(view.exit_status(), 3);
    EXPECT_THAT(kept.content(), testing::ElementsAreArray(std::string("yesterday")));
}

TEST(LiveViewFile, VideoThatCannotBeKeptIsToldSo)
{
    zucam::camera_options options = small();
    options.codec = zucam::codec_kind::h265;
    const zucam::camera camera(options);
    const kept_file kept;
    program view(LIVE_VIEW, kept.from(camera));
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > 20; }));
    view.send_signal(SIGINT);
    EXPECT_EQ(view.exit_status(), 1);
    EXPECT_EQ(view.output().find("summary: 0 frames"), std::string::npos);
    EXPECT_THAT(view.errors(), HasSubstr("live_view: no H.264 key frame came, nothing was kept\n"));
}

TEST(LiveViewFile, SoundSwitchedOnCostsNoFrame)
{
    zucam::camera_options options = small();
    options.audio = zucam::audio_kind::none;
    options.gop = 10000; // the next key frame is far away
    const zucam::camera camera(options);
    const kept_file kept;
    program view(LIVE_VIEW, kept.from(camera));
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > 20; }));
    tools::camera_client client(camera.port());
    ASSERT_EQ(tools::write_setting(client, tools::audio_setting,
                                   tools::record_of({0, 0, 1, 2, 8000, 64, 50})),
              0U);
    const std::uint64_t before = camera.counters().messages_sent;
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > before + 100; }));
    view.send_signal(SIGINT);
    EXPECT_EQ(view.exit_status(), 0) << view.errors();

    const std::vector<std::uint64_t> numbers = kept.frame_numbers();
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(numbers.size(), numbers.back() - numbers.front() + 1) << "none is missing";
    EXPECT_GT(numbers.size(), 50U);
}

} // namespace
