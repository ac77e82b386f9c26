// Many cameras that come and go at once, with devices that drop links, stay silent and send without
// end; afterwards nothing is left.
#include "client_kit.h"

namespace
{

using namespace support;

class ManyCameras : public ClientTest
{
};

// One life: frames, requests and movements until the end comes in their midst.
void live(unsigned short port, unsigned number)
{
    std::atomic<uint64_t> handled{0};
    zu::CameraOptions options;
    options.stalled_after = milliseconds(200);
    options.peer_silent_after = milliseconds(1000);
    options.deadline = milliseconds(300);
    options.requests_at_once = 1 + number % 3;
    options.queue.frames = 1 + number % 5;
    options.queue.when_full = static_cast<zu::WhenFull>(number % 3);
    options.on_event = [&](const zu::Event&) { ++handled; };
    if (number % 4 == 0) {
        options.on_frame = [&](const zu::FrameView& view) { handled += view.number; };
    }
    auto made = zu::Camera::log_in(address_of(port), options);
    if (!made) {
        EXPECT_EQ(made.error(), zu::Errc::cannot_connect); // a link that is dropped too soon
        return;
    }
    zu::Camera camera = std::move(made).value();
    (void)camera.start_stream();
    (void)camera.move(1, 1, milliseconds(10 + number));
    std::thread asking([&] {
        for (int i = 0; i < 5; i++) {
            (void)camera.standard(2, 1, milliseconds(100));
        }
    });
    for (int i = 0; i < 10; i++) {
        (void)camera.next_frame(milliseconds(20));
        (void)camera.media();
    }
    asking.join();
    const zu::Stats stats = camera.stats();
    EXPECT_GE(stats.frames, stats.taken);
    EXPECT_GE(stats.requests, stats.requests_done + stats.requests_refused + stats.requests_failed);
}

TEST_F(ManyCameras, ComeAndGo)
{
    const auto asked_so_far = std::make_shared<std::atomic<unsigned>>(0);
    device->behave(answering([asked_so_far](peer& end, const message& m) {
        if (++*asked_so_far % 7 == 0) {
            return; // silent once in a while
        }
        answers_with(0)(end, m);
    }));
    const Streamer pictures(*device, video(h264_key) + video(h264_delta) + audio(),
                            milliseconds(5));
    std::atomic<bool> over{false};
    std::thread trouble([&] {
        while (!eventually([&] { return over.load(); }, milliseconds(700))) {
            device->drop_links();
        }
    });
    std::vector<std::thread> lives;
    for (unsigned number = 0; number < 32; number++) {
        lives.emplace_back([this, number] {
            for (unsigned round = 0; round < 2; round++) {
                live(device->port(), number + round);
            }
        });
    }
    for (auto& life : lives) {
        life.join();
    }
    over = true;
    trouble.join();
}

// As many as there are places: each has its frame and its answer, and the next one has no place.
TEST_F(ManyCameras, AreAllThereAtOnce)
{
    constexpr size_t places = 256;
    ASSERT_TRUE(allow_descriptors(10 * places));
    std::vector<std::optional<zu::Camera>> cameras(places);
    std::vector<std::thread> each;
    const auto for_all = [&](const std::function<void(std::optional<zu::Camera>&)>& what) {
        for (auto& camera_of_one : cameras) {
            each.emplace_back([&camera_of_one, &what] { what(camera_of_one); });
        }
        for (auto& thread : each) {
            thread.join();
        }
        each.clear();
    };
    for_all([this](auto& its) {
        auto made = zu::Camera::log_in(address_of(device->port()));
        EXPECT_TRUE(made) << made.error().message();
        if (made) {
            its.emplace(std::move(made).value());
        }
    });
    EXPECT_EQ(zu::Camera::log_in(address_of(device->port())).error(), zu::Errc::cannot_connect);
    EXPECT_TRUE(eventually([this] { return device->links_open() == places; }));
    // Again and again: so many on a small machine may lose a link once in a while.
    const Streamer pictures(*device, video(h264_key), milliseconds(200));
    for_all([](auto& its) {
        ASSERT_TRUE(its);
        EXPECT_TRUE(its->next_frame(long_enough));
        EXPECT_TRUE(eventually([&] { return !its->standard(1, 1, long_enough); }));
        its.reset();
    });
    EXPECT_GE(asked(move_message), places);
}

} // namespace
