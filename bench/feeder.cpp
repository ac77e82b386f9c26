// A device, or many behind one port, that sends 25 frames a second, and sound. See roles.h.
#include <thread>

#include "cutter.h"
#include "feed.h"
#include "roles.h"
#include "sockets.h"

namespace bench
{

namespace
{

constexpr std::size_t longest_request = 8192;

struct link {
    feed& frames;
    const int fd;
};

void on_request(void* user, const head& first, unsigned char*)
{
    const link& own = *static_cast<link*>(user);
    const std::string body = first.type == heartbeat_request ? "" : words({0});
    own.frames.answer(own.fd, message(first.type + 1, first.wait_port, body),
                      first.type == start_stream_request);
}

} // namespace

void run_feeder(const arguments& given)
{
    const auto block = [](const char* flag, std::size_t size) {
        return size == 0 ? "" : message(stream_data, 0, flag + std::string(size - 4, 'x'));
    };
    const course each = {block("KTVF", std::stoul(given.at(0))), std::stoul(given.at(1)),
                         block("KTAF", std::stoul(given.at(2)))};
    feed frames(each, std::stoul(given.at(3)));
    std::thread([&frames] { frames.run(); }).detach();
    serve_until_told([&frames](int fd) {
        link own = {frames, fd};
        cutter requests(fd, longest_request, on_request, &own);
        while (requests.read_once()) {
        }
        frames.leave(fd);
    });
}

} // namespace bench
