// zu_bench_peers WHO PORT UNITS: takes so many units (messages, access units) from the device on
// that port by another library, and prints the CPU seconds for a gigabyte of them.
// zu_bench_peers WHO-cameras PORT CAMERAS: watches so many cameras for a while, and prints the CPU
// seconds for each access unit.
// zu_bench_peers zeromq-device TRAFFIC: sends messages by ZeroMQ; prints its port; runs until
// standard input ends.
#include <cstdio>
#include <exception>
#include <map>
#include <unistd.h>

#include "peer_meter.h"
#include "sockets.h"
#include "window.h"

namespace
{

using namespace bench;

const std::map<std::string, double (*)(unsigned short, long)> takers = {
    {"libavformat", take_by_libavformat},
    {"gstreamer", take_by_gstreamer},
    {"zeromq", take_by_zeromq},
    {"curl", take_by_curl}};

using watcher = void (*)(unsigned short, int, std::atomic<long>&);
const std::map<std::string, watcher> watchers = {{"libavformat-cameras", watch_by_libavformat},
                                                 {"gstreamer-cameras", watch_by_gstreamer}};

struct cameras {
    std::atomic<long> units{0};
    long taken() const
    {
        return units;
    }
};

int run(const std::string& who, const std::string& where, int number)
{
    static cameras all; // the threads of the cameras never end
    const auto port = [&] { return static_cast<unsigned short>(std::stoi(where)); };
    if (const auto taker = takers.find(who); taker != takers.end()) {
        std::printf("%.9f\n", taker->second(port(), number));
    } else if (const auto watching = watchers.find(who); watching != watchers.end()) {
        watching->second(port(), number, all.units);
        wait_for_blocks(all, 5L * number);
        warm_up(all);
        std::printf("%.9f\n", watch(all).cpu);
    } else if (who == "zeromq-device") {
        std::printf("%d\n", start_zeromq_device(where));
        std::fflush(stdout);
        char byte;
        while (read(STDIN_FILENO, &byte, 1) > 0) {
        }
    } else {
        throw std::runtime_error("nobody of that name: " + who);
    }
    std::fflush(stdout);
    _exit(0); // threads of the peers may run still
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: zu_bench_peers WHO PORT UNITS\n");
        return 2;
    }
    try {
        allow_many_descriptors();
        return run(argv[1], argv[2], argc > 3 ? std::stoi(argv[3]) : 0);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zu_bench_peers: %s\n", error.what());
        return 1;
    }
}
