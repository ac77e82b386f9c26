// What zucam record makes of a camera whose video gets damaged while it is recorded. Between the
// two stands a wire that understands the camera's messages; its threads end with the connection.
#include "camera_client.h"
#include "zucam_runner.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{

using tools::bytes;
using tools::ended;
using tools::scratch;

// Makes no sense of the first sequence parameter set (H.264) of an access unit.
bool damage_parameter_set(bytes& message)
{
    const std::array<std::uint8_t, 4> head = {0, 0, 1, 0x67};
    const auto found = std::search(message.begin(), message.end(), head.begin(), head.end());
    if (message.end() - found < 12) {
        return false;
    }
    std::fill(found + 4, found + 12, std::uint8_t{0});
    return true;
}

// Takes one connection and hands it on to the camera.
class damaging_wire
{
public:
    explicit damaging_wire(std::uint16_t camera_port)
        : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), camera_(camera_port)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        const bool listens = bind(listener_, any, size) == 0 && listen(listener_, 1) == 0 &&
                             getsockname(listener_, any, &size) == 0;
        EXPECT_TRUE(listens);
        port_ = ntohs(address.sin_port);
        there_ = std::thread([this] { carry_to_camera(); });
    }

    ~damaging_wire()
    {
        (void)shutdown(listener_, SHUT_RDWR);
        there_.join();
        (void)close(listener_);
    }

    damaging_wire(const damaging_wire&) = delete;
    damaging_wire& operator=(const damaging_wire&) = delete;

    std::string address() const
    {
        return "127.0.0.1:" + std::to_string(port_);
    }

    int damaged() const
    {
        return damaged_;
    }

private:
    void carry_to_camera()
    {
        const int tool = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (tool < 0) {
            return;
        }
        std::thread back([this, tool] { carry_from_camera(tool); });
        std::array<std::uint8_t, 4096> piece{};
        for (ssize_t count = 0; (count = recv(tool, piece.data(), piece.size(), 0)) > 0;) {
            camera_.send(bytes(piece.begin(), piece.begin() + count));
        }
        ended_ = true;
        back.join();
        (void)close(tool);
    }

    // The camera sends often enough for the end to be noticed.
    void carry_from_camera(int tool)
    {
        int key_frames = 0;
        while (!ended_) {
            tools::received message = camera_.next();
            if (!message) {
                return;
            }
            key_frames += tools::is_key_frame(message) ? 1 : 0;
            if (key_frames == 2 && damaged_ == 0) {
                damaged_ = damage_parameter_set(message.whole) ? 1 : -1;
            }
            (void)send(tool, message.whole.data(), message.whole.size(), MSG_NOSIGNAL);
        }
    }

    int listener_;
    std::uint16_t port_ = 0;
    tools::camera_client camera_;
    std::atomic<bool> ended_{false};
    std::atomic<int> damaged_{0};
    std::thread there_;
};

TEST(ZucamDamage, AKeyFrameThatMakesNoSenseDoesNotEndARecording)
{
    const zucam::camera camera(tools::small_pictures());
    const scratch files;
    const damaging_wire wire(camera.port());
    const ended result =
        tools::zucam({"record", wire.address(), files / "x.mkv", "--count", "80", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(wire.damaged(), 1);
    EXPECT_EQ(tools::objects_in(result.out).at(0)["frames"], 80);
    EXPECT_EQ(files.names(), std::vector<std::string>{"x.mkv"});
    EXPECT_GT(tools::frames_in(files / "x.mkv"), 50U) << "what was not damaged plays";
}

} // namespace
