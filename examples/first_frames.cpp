// The C++ layer in one page: logs in, tells what happens, starts stream 0, takes ten seconds of
// frames from the queue and says what there was.
//
//     first_frames HOST PORT USER PASSWORD
//
// Frames are taken on the main thread; events are told by the camera's own thread.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "zu/camera.hpp"

using namespace std::chrono_literals;

namespace
{

constexpr int exit_options = 2;
constexpr int exit_login = 3;
constexpr int exit_refused = 4;

int fail(const char* what, const std::error_code& error, int status)
{
    std::fprintf(stderr, "first_frames: %s: %s\n", what, error.message().c_str());
    return status;
}

zu::CameraOptions options()
{
    zu::CameraOptions out;
    out.on_event = [](const zu::Event& event) { std::printf("%s\n", zu::name_of(event.kind)); };
    return out;
}

// Until ten seconds are over, or two have passed without a frame.
void take_frames(zu::Camera& camera)
{
    const auto end = zu::Clock::now() + 10s;
    while (zu::Clock::now() < end) {
        const auto frame = camera.next_frame(2s);
        if (!frame) {
            break;
        }
        if (frame->key) {
            std::printf("key frame %llu, %zu bytes\n",
                        static_cast<unsigned long long>(frame->number), frame->bytes.size());
        }
    }
}

int view(zu::Camera& camera)
{
    if (const auto error = camera.start_stream()) {
        return fail("start the stream", error, exit_refused);
    }
    take_frames(camera);
    const auto settings = camera.get<zu::VideoSettings>();
    if (!settings) {
        return fail("read the video setting", settings.error(), exit_refused);
    }
    const zu::Stats stats = camera.stats();
    std::printf("%u x %u, %llu frames, %llu key frames, link %s\n", settings.value().u32Width,
                settings.value().u32Height, static_cast<unsigned long long>(stats.frames),
                static_cast<unsigned long long>(stats.key_frames),
                camera.link().state == zu::LinkState::up ? "up" : "down");
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 5) {
        std::fprintf(stderr, "usage: first_frames HOST PORT USER PASSWORD\n");
        return exit_options;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto port = static_cast<std::uint16_t>(std::strtoul(arguments[2], nullptr, 10));
    const zu::Library library;
    auto camera = zu::Camera::log_in({arguments[1], port, arguments[3], arguments[4]}, options());
    if (!camera) {
        return fail("log in", camera.error(), exit_login);
    }
    return view(*camera);
}
