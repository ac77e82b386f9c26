// Many links, slow peers, dropping and stopping: what a camera
// does as a server. Numbered frames make every loss and every
// mix-up visible. Threads of the camera run in this process, so
// the sanitizers see all of it.
#include "camera_client.h"
#include "eventually.h"
#include "virtual_camera/camera.h"
#include "virtual_camera/numbered.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>

namespace
{

using support::eventually;
using tools::bytes;
using tools::camera_client;
using tools::from_hex;

zucam::camera_options numbered(unsigned fps, std::size_t size)
{
    zucam::camera_options options;
    options.numbered_size = size;
    options.fps = fps;
    return options;
}

std::optional<std::uint32_t> next_number(camera_client& client, std::uint32_t seed)
{
    const auto message = client.next_with_flag("KTVF");
    if (!message) {
        return std::nullopt;
    }
    const bytes body = message.payload();
    return zucam::check_numbered_body(seed, body.data(), body.size());
}

TEST(CameraLinks, TwoHundredLinksOfOneCameraMissNoFrame)
{
    const zucam::camera camera(numbered(10, 600));
    std::vector<std::unique_ptr<camera_client>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<camera_client>(camera.port()));
        ASSERT_TRUE(clients.back()->connected());
        clients.back()->send_start(0);
    }
    for (auto& client : clients) {
        const auto first = next_number(*client, 1);
        ASSERT_TRUE(first);
        EXPECT_EQ(next_number(*client, 1), *first + 1);
        EXPECT_EQ(next_number(*client, 1), *first + 2);
    }
    EXPECT_EQ(camera.counters().connections_now, 200U);
    EXPECT_EQ(camera.counters().messages_dropped, 0U);
}

TEST(CameraLinks, CamerasWithDifferentSeedsSendDifferentFrames)
{
    zucam::camera_options options = numbered(50, 50);
    options.seed = 1;
    const zucam::camera one(options);
    options.seed = 2;
    const zucam::camera other(options);
    camera_client client(one.port());
    camera_client other_client(other.port());
    client.send_start(0);
    other_client.send_start(0);
    EXPECT_NE(next_number(client, 1), std::nullopt);
    EXPECT_NE(next_number(other_client, 2), std::nullopt);
    EXPECT_EQ(next_number(other_client, 1), std::nullopt);
}

TEST(CameraLinks, ALinkMayWatchTwoStreams)
{
    const zucam::camera camera(numbered(50, 50));
    camera_client client(camera.port());
    client.send_start(0);
    client.send_start(3);
    ASSERT_TRUE(client.next_with_flag("FSYS"));
    EXPECT_EQ(client.next_with_flag("FSYS").word(28), 3U);
    client.send(from_hex("11100000 08000000 00000000 00000000 01000000"));
    ASSERT_TRUE(client.next_of_type(0x1012));
    EXPECT_TRUE(client.next_with_flag("KTVF")) << "the other stream goes on";
}

TEST(CameraLinks, AStreamBegunAnewSendsItsHeaderAgainAndCountsOn)
{
    const zucam::camera camera(numbered(50, 50));
    camera_client client(camera.port());
    client.send_start(0);
    const auto first = next_number(client, 1);
    client.send(from_hex("11100000 08000000 00000000 00000000 01000000"));
    ASSERT_TRUE(client.next_of_type(0x1012));
    client.send_start(0);
    ASSERT_TRUE(client.next_with_flag("FSYS"));
    EXPECT_GT(next_number(client, 1).value(), first.value());
}

TEST(CameraLinks, CountersFollowConnections)
{
    const zucam::camera camera(numbered(50, 50));
    {
        const camera_client one(camera.port());
        const camera_client other(camera.port());
        EXPECT_TRUE(eventually([&] { return camera.counters().connections_now == 2; }));
    }
    EXPECT_TRUE(eventually([&] { return camera.counters().connections_now == 0; }));
    EXPECT_EQ(camera.counters().connections_total, 2U);
}

TEST(CameraLinks, DroppedLinksEndAndTheCameraListensOn)
{
    zucam::camera camera(numbered(50, 50));
    camera_client client(camera.port());
    client.send_start(0);
    ASSERT_TRUE(client.next());
    camera.drop_links();
    EXPECT_TRUE(client.ends());
    EXPECT_TRUE(tools::somebody_listens(camera.port()));
}

TEST(CameraLinks, APeerThatDoesNotReadLosesFramesAndNobodyElseDoes)
{
    zucam::camera_options options = numbered(500, 100000);
    options.backlog_limit = 1000000;
    const zucam::camera camera(options);
    camera_client slow(camera.port());
    slow.send_start(0);
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_dropped > 0; }));

    camera_client good(camera.port());
    good.send_start(3);
    const auto first = next_number(good, 1);
    EXPECT_EQ(next_number(good, 1).value(), first.value() + 1);
}

TEST(CameraLinks, APeerThatTakesNothingLosesItsLink)
{
    zucam::camera_options options = numbered(500, 100000);
    options.stall_limit = std::chrono::milliseconds(200);
    const zucam::camera camera(options);
    camera_client slow(camera.port());
    slow.send_start(0);
    EXPECT_TRUE(eventually([&] {
        const zucam::camera_counters now = camera.counters();
        return now.connections_total == 1 && now.connections_now == 0;
    }));
}

TEST(CameraLinks, StoppingDoesNotWaitForAPeerThatDoesNotRead)
{
    zucam::camera camera(numbered(500, 100000));
    camera_client slow(camera.port());
    slow.send_start(0);
    ASSERT_TRUE(eventually([&] { return camera.counters().messages_sent > 10; }));
    camera.stop();
    EXPECT_EQ(camera.counters().connections_now, 0U);
    EXPECT_FALSE(tools::somebody_listens(camera.port()));
}

TEST(CameraLinks, StoppingTwiceAndUsingAStoppedCameraIsHarmless)
{
    zucam::camera camera(numbered(50, 50));
    camera.stop();
    camera.stop();
    camera.drop_links();
    camera.set_faults({});
    EXPECT_EQ(camera.counters().connections_now, 0U);
}

TEST(CameraLinks, ThreadsMayAskACameraAnythingAtOnce)
{
    zucam::camera camera(numbered(200, 50));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&camera, i] {
            for (int round = 0; round < 20; ++round) {
                camera_client client(camera.port());
                client.send_start(static_cast<std::uint8_t>(i));
                (void)client.next();
                camera.drop_links();
                camera.set_faults({});
                (void)camera.journal();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(camera.counters().connections_total, 80U);
}

TEST(CameraLinks, APortInUseIsRefusedWithOneClearLine)
{
    const zucam::camera first(numbered(50, 50));
    zucam::camera_options options = numbered(50, 50);
    options.port = first.port();
    try {
        const zucam::camera second(options);
        FAIL() << "it took a port in use";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("a free port"), std::string::npos);
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
    }
}

} // namespace
