// Many cameras that come and go at once, with devices that drop links, stay silent and send without
// end; afterwards nothing is left.
#include "client_kit.h"

#include <climits>

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

// How many threads the control group of this process and those around it leave to it, as far as
// they can be read.
long threads_left()
{
    long left = LONG_MAX;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) { // NUMBER:CONTROLLERS:PATH
        const size_t path_at = line.find(':', line.find(':') + 1) + 1;
        const bool unified = line.rfind("0::", 0) == 0;
        if (!unified && line.find(":pids:") == std::string::npos) {
            continue;
        }
        const std::string root = unified ? "/sys/fs/cgroup" : "/sys/fs/cgroup/pids";
        for (std::string path = line.substr(path_at);;) {
            long most = 0;
            long current = 0;
            std::ifstream limit(root + path + "/pids.max");
            std::ifstream taken(root + path + "/pids.current");
            if (limit >> most && taken >> current) { // no number where there is no limit
                left = std::min(left, most - current);
            }
            if (path.empty()) {
                break;
            }
            path.erase(path.rfind('/'));
        }
    }
    return left;
}

// As many as there are places: each has its frame and its answer, and the next one has no place.
TEST_F(ManyCameras, AreAllThereAtOnce)
{
    constexpr size_t places = 256;
    ASSERT_TRUE(allow_descriptors(10 * places))
        << "256 cameras can't be tried here: raise the limit of open files (ulimit -Hn) to "
        << 10 * places;
    // For each three of the C library and one for what it tells, two of the layer, one of the
    // device and one of this test.
    ASSERT_GE(threads_left(), static_cast<long>(8 * places))
        << "256 cameras can't be tried here: raise the limit of threads (pids.max)";
    std::vector<std::optional<zu::Camera>> cameras(places);
    std::vector<std::thread> threads;
    const auto on_threads = [&](size_t count, const std::function<void(size_t)>& what) {
        for (size_t i = 0; i < count; i++) {
            threads.emplace_back([i, &what] { what(i); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        threads.clear();
    };
    // A Login has three seconds for its connection and its threads, and the processors are few.
    std::atomic<size_t> next{0};
    on_threads(8, [&](size_t) {
        for (size_t i = next++; i < places; i = next++) {
            auto made = zu::Camera::log_in(address_of(device->port()));
            EXPECT_TRUE(made) << made.error().message();
            if (made) {
                cameras[i].emplace(std::move(made).value());
            }
        }
    });
    ASSERT_FALSE(HasFailure());
    EXPECT_EQ(zu::Camera::log_in(address_of(device->port())).error(), zu::Errc::cannot_connect);
    EXPECT_TRUE(eventually([this] { return device->links_open() == places; }));
    // Again and again: so many on a small machine may lose a link once in a while.
    const Streamer pictures(*device, video(h264_key), milliseconds(200));
    on_threads(places, [&](size_t i) {
        auto& its = cameras[i];
        ASSERT_TRUE(its);
        EXPECT_TRUE(its->next_frame(long_enough));
        EXPECT_TRUE(eventually([&] { return !its->standard(1, 1, long_enough); }));
        its.reset();
    });
    EXPECT_GE(asked(move_message), places);
}

} // namespace
