// What the tests of the C++ layer share: a device that serves and sends, a camera that is logged in
// to it with its events written down, and frames to send.
//
// Everything that is shared with threads of the layer is atomic or has a lock of its own.
#pragma once

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "eventually.h"
#include "process_probe.h"
#include "scripted_device.h"
#include "seam.h"
#include "wire_bytes.h"
#include "zu/camera.hpp"

namespace support
{

using std::chrono::milliseconds;
using std::chrono::seconds;

// ---- what the device is asked ----

constexpr uint32_t start_message = 0x1001;
constexpr uint32_t stop_message = 0x1011;
constexpr uint32_t heartbeat_message = 0x1021;
constexpr uint32_t move_message = 0x1031;
constexpr uint32_t preset_message = 0x1041;
constexpr uint32_t key_frame_message = 0x1051;
constexpr uint32_t set_message = 0x1061;
constexpr uint32_t get_message = 0x1071;

// ---- frames ----

inline const bytes h264_key = hex("00 00 00 01 65 88 84 00");
inline const bytes h264_delta = hex("00 00 00 01 41 9a 00 10");
inline const bytes h264_sets = hex("00 00 00 01 67 42 c0 1e  00 00 00 01 68 ce 3c 80");
inline const bytes h265_key = hex("00 00 00 01 26 01 af 08");
inline const bytes h265_delta = hex("00 00 00 01 02 01 d0 09");
inline const bytes h265_sets = hex("00 00 00 01 40 01 0c 01  00 00 00 01 42 01 01 01");

inline bytes video(const bytes& unit)
{
    return stream_data("KTVF", unit);
}
inline bytes audio()
{
    return stream_data("KTAF", hex("d5 d5 d5 d5"));
}
inline bytes sets(const bytes& units)
{
    return stream_data("EXVC", units);
}
inline bytes system_header(uint32_t frame_rate, uint32_t width = 1280, uint32_t height = 720)
{
    return stream_data("FSYS", le32(width) + le32(height) + le32(0) + le32(0) + le32(frame_rate) +
                                   le32(2048));
}

// Sends the same to all connections of a device again and again, until it ends.
class Streamer
{
public:
    Streamer(serving_device& device, const bytes& data, milliseconds pause)
        : thread([this, &device, data, pause] {
              while (!eventually([this] { return over.load(); }, pause)) {
                  device.send_to_all(data);
              }
          })
    {
    }
    ~Streamer()
    {
        over = true;
        thread.join();
    }
    Streamer(const Streamer&) = delete;
    Streamer& operator=(const Streamer&) = delete;

private:
    std::atomic<bool> over{false};
    std::thread thread;
};

// ---- the camera's side ----

// A thread that comes to wait inside `what`.
class Waiter
{
public:
    explicit Waiter(std::function<void()> what)
        : thread([this, what = std::move(what)] {
              id = gettid();
              what();
          })
    {
    }
    ~Waiter()
    {
        thread.join();
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    // Until it sleeps there, by what the system says of it.
    bool waits() const
    {
        return eventually([this] { return id != 0 && state() == 'S'; });
    }

private:
    char state() const
    {
        std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
        std::string line;
        std::getline(stat, line);
        const size_t name_ends = line.rfind(") ");
        return name_ends == std::string::npos ? '?' : line.at(name_ends + 2);
    }

    std::atomic<pid_t> id{0};
    std::thread thread;
};

// Writes down the events of a camera.
class EventLog
{
public:
    zu::EventHandler handler()
    {
        return [own = own](const zu::Event& event) {
            const std::lock_guard<std::mutex> lock(own->guard);
            own->events.push_back(event);
        };
    }
    std::vector<zu::Event> all() const
    {
        const std::lock_guard<std::mutex> lock(own->guard);
        return own->events;
    }
    // Those of these kinds, in order; the others come when they come.
    std::vector<zu::EventKind> only(const std::set<zu::EventKind>& wanted) const
    {
        std::vector<zu::EventKind> out;
        for (const zu::Event& event : all()) {
            if (wanted.count(event.kind) > 0) {
                out.push_back(event.kind);
            }
        }
        return out;
    }
    int count(zu::EventKind kind) const
    {
        const auto events = all();
        return static_cast<int>(
            std::count_if(events.begin(), events.end(),
                          [=](const zu::Event& event) { return event.kind == kind; }));
    }
    bool wait_for(zu::EventKind kind, int times = 1) const
    {
        return eventually([=] { return count(kind) >= times; });
    }
    // Until the latest of some kinds is this one.
    bool wait_for_latest(zu::EventKind kind, const std::set<zu::EventKind>& of) const
    {
        return eventually([&] {
            const auto so_far = only(of);
            return !so_far.empty() && so_far.back() == kind;
        });
    }
    void forget()
    {
        const std::lock_guard<std::mutex> lock(own->guard);
        own->events.clear();
    }

private:
    struct State {
        mutable std::mutex guard;
        std::vector<zu::Event> events;
    };
    const std::shared_ptr<State> own = std::make_shared<State>();
};

// Takes log lines.
class LineLog
{
public:
    zu::LogHandler handler()
    {
        return [own = own](const zu::LogLine& line) {
            const std::lock_guard<std::mutex> lock(own->guard);
            own->lines.push_back((line.error ? "E " : "T ") + std::string(line.text));
        };
    }
    std::vector<std::string> all() const
    {
        const std::lock_guard<std::mutex> lock(own->guard);
        return own->lines;
    }
    size_t count(const std::string& text) const
    {
        const auto lines = all();
        return static_cast<size_t>(
            std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(text) != std::string::npos;
            }));
    }

private:
    struct State {
        mutable std::mutex guard;
        std::vector<std::string> lines;
    };
    const std::shared_ptr<State> own = std::make_shared<State>();
};

inline zu::CameraAddress address_of(unsigned short port)
{
    return {"127.0.0.1", port, "admin", "secret"};
}

inline behaviour answering(std::function<void(peer&, const message&)> how)
{
    behaviour out;
    out.on_message = std::move(how);
    return out;
}

// Answers heartbeats and nothing else.
inline behaviour mute()
{
    return answering([](peer& end, const message& m) {
        if (m.type == heartbeat_message) {
            end.send(make_message(heartbeat_message + 1, 0, {}));
        }
    });
}

// A library, a device and, when a test makes one, a camera; afterwards nothing is left of them. Its
// requests have as long as the C library gives them, unless the test sets a deadline.
class ClientTest : public testing::Test
{
protected:
    zu::Camera& log_in(zu::CameraOptions options = {})
    {
        if (!options.on_event) {
            options.on_event = events.handler();
        }
        if (options.deadline == zu::CameraOptions().deadline) {
            options.deadline = long_enough;
        }
        camera = std::make_unique<zu::Camera>(address_of(device->port()), std::move(options));
        EXPECT_TRUE(eventually([this] { return device->links_open() > 0; }));
        return *camera;
    }
    void TearDown() override
    {
        camera.reset();
        library.reset();
        device.reset();
        EXPECT_EQ(before.left_over(), "");
    }

    // Until the camera has told that its link is up again for the n-th time, and the device, which
    // may be slower, knows of it too: what it sends and drops from here on is this link's.
    bool is_up_again(int times = 1) const
    {
        return events.wait_for(zu::EventKind::link_up, times) &&
               eventually([this] { return device->links_open() == 1; });
    }
    // How often the device has been asked for something.
    size_t asked(uint32_t type) const
    {
        return device->received(type).size();
    }
    // Makes a request that times out while the device is at it. Where a busy machine does not begin
    // it in time it never begins, so it is made until the device has been asked.
    template <class Request>
    void let_time_out(uint32_t type, Request request)
    {
        do {
            EXPECT_EQ(request(), zu::Errc::timed_out);
        } while (!HasFailure() && !eventually([=] { return asked(type) > 0; }, seconds(1)));
    }
    // Lets time pass until there is a heartbeat, again for a sender that has not begun to count
    // yet. It is less than what a request or the receiver waits for.
    void let_a_heartbeat_come(stopped_clock& still) const
    {
        do {
            still.advance(3);
        } while (!eventually([=] { return asked(heartbeat_message) > 0; }, seconds(5)));
    }

    const inventory before;
    std::unique_ptr<serving_device> device = std::make_unique<serving_device>();
    std::unique_ptr<zu::Library> library = std::make_unique<zu::Library>();
    EventLog events;
    std::unique_ptr<zu::Camera> camera;
};

} // namespace support
