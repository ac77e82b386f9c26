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

} // namespace
