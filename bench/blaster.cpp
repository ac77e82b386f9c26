// A device that sends as fast as it can. See roles.h.
#include "cutter.h"
#include "roles.h"
#include "sockets.h"
#include "traffic.h"

namespace bench
{

namespace
{

constexpr std::size_t longest_request = 8192;

struct blast {
    const traffic what;
    const std::size_t cycles;
};

struct link {
    const blast& conduct;
    const int fd;
};

void on_request(void* user, const head& first, unsigned char*)
{
    const link& own = *static_cast<link*>(user);
    const std::string body = first.type == heartbeat_request ? "" : words({0});
    send_all(own.fd, message(first.type + 1, first.wait_port, body));
    for (std::size_t i = 0; first.type == start_stream_request && i < own.conduct.cycles; i++) {
        if (!send_all(own.fd, own.conduct.what.cycle())) {
            return;
        }
    }
}

} // namespace

void run_blaster(const arguments& given)
{
    const blast conduct = {traffic(given.at(0)), std::stoul(given.at(1))};
    serve_until_told([&conduct](int fd) {
        link own = {conduct, fd};
        cutter requests(fd, longest_request, on_request, &own);
        while (requests.read_once()) {
        }
    });
}

} // namespace bench
