// The child processes. See roles.h.
#include "roles.h"

#include <cstdio>
#include <map>
#include <thread>
#include <unistd.h>

#include "sockets.h"

namespace bench
{

void serve_until_told(const std::function<void(int)>& serve)
{
    unsigned short port = 0;
    const descriptor listener = listen_on_loopback(&port);
    std::thread([&listener, &serve] {
        for (;;) {
            const int link = accept_one(listener).release();
            std::thread([link, &serve] {
                serve(link);
                close(link);
            }).detach();
        }
    }).detach();
    std::printf("%d\n", port);
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    std::fflush(stdout);
    _exit(0); // the threads never end
}

int run_role(const arguments& given)
{
    static const std::map<std::string, void (*)(const arguments&)> roles = {
        {"blaster", run_blaster},         {"feeder", run_feeder},
        {"memory", run_memory},           {"rtsp-blaster", run_rtsp_blaster},
        {"rtsp-feeder", run_rtsp_feeder}, {"http", run_http}};
    const arguments rest(given.begin() + 1, given.end());
    roles.at(given.at(0))(rest);
    return 0;
}

} // namespace bench
