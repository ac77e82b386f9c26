// The group `peers`: the same pictures, or messages of the same sizes, by the library and by others
// that people take video or messages with. Each client of another library is a process of its own
// (peer_clients.cpp) that measures itself.
#include <filesystem>
#include <memory>

#include "blast.h"
#include "child.h"
#include "groups.h"
#include "logins.h"
#include "traffic.h"
#include "window.h"

namespace bench
{

namespace
{

constexpr double gigabyte = 1e9;
constexpr int cameras = 64;
constexpr int units_a_second = 25;
constexpr std::size_t unit_size = 20000;

struct peer {
    const char* who;
    const char* name;
    double amount; // bytes of a round
    double goal;   // of the ratio; 0: none
};

// Seconds for a gigabyte, or for an access unit of many cameras.
double by_peer(const std::string& who, unsigned short port, long units)
{
    child client("zu_bench_peers", {who, std::to_string(port), std::to_string(units)});
    return std::stod(client.read_line());
}

std::unique_ptr<device_process> device_for(const std::string& who, std::size_t cycles)
{
    using role = std::vector<std::string>;
    const std::string times = std::to_string(cycles);
    if (who == "zeromq") {
        return std::make_unique<device_process>("zu_bench_peers", role{"zeromq-device", "video"});
    }
    return std::make_unique<device_process>(who == "curl" ? role{"http", "video", times}
                                                          : role{"rtsp-blaster", times});
}

goal wanted(double ratio)
{
    return ratio == 0 ? goal() : ratio_at_most(ratio);
}

void measure_blast(report& out, const peer& of)
{
    constexpr double own_amount = 256e6;
    const traffic what("video");
    const std::size_t own_cycles = what.cycles_for(own_amount);
    const std::size_t cycles = what.cycles_for(of.amount);
    const double own_gigabytes = static_cast<double>(own_cycles * what.payload()) / gigabyte;
    const device_process own_device({"blaster", "video", std::to_string(own_cycles)});
    // One unit more than is taken: a parser knows the end of one by the begin of the next.
    const auto units = static_cast<long>(cycles * what.messages()) - 1;
    const auto device = device_for(of.who, cycles);

    sink blocks;
    const login own(own_device.port());
    own.deliver_to(blocks);
    row figure = {of.name, "s/GB", wanted(of.goal)};
    for (int round = 0; round <= rounds; round++) {
        const double theirs = by_peer(of.who, device->port(), units);
        const double ours = cpu_of_blast(blocks, static_cast<long>(own_cycles * what.messages()),
                                         [&] { own.start_stream(); });
        if (round > 0) { // the first warms up
            figure.add(ours / own_gigabytes, theirs);
        }
    }
    out.add(figure);
}

void measure_cameras(report& out, const peer& of)
{
    const std::string links = std::to_string(cameras);
    const device_process own_device({"feeder", std::to_string(unit_size), "1448", "0", links});
    const device_process device({"rtsp-feeder", std::to_string(unit_size), links});
    constexpr double percent = 100.0 * cameras * units_a_second;
    row figure = {of.name, "% of core", wanted(of.goal)};
    for (int round = 0; round < rounds; round++) {
        const double theirs = by_peer(of.who, device.port(), cameras);
        const login_crowd crowd(own_device.port(), cameras, true);
        warm_up(crowd);
        figure.add(watch(crowd).cpu * percent, theirs * percent);
    }
    out.add(figure);
}

} // namespace

void measure_peers(report& out)
{
    out.begin_group("peers", "the same pictures or messages by other libraries; CPU of the client");
    const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    if (!std::filesystem::exists(here / "zu_bench_peers")) {
        std::printf("  off: built without %s\n", PEERS_MISSING);
        return;
    }
    for (const peer& each : {peer{"libavformat", "libavformat, RTSP", 24e6, 1.0 / 30},
                             peer{"gstreamer", "GStreamer, RTSP", 24e6, 1.0 / 40},
                             peer{"zeromq", "ZeroMQ, PULL", 128e6, 1.0 / 4},
                             peer{"curl", "libcurl, HTTP", 256e6, 0}}) {
        measure_blast(out, each);
    }
    for (const peer& each :
         {peer{"libavformat-cameras", "libavformat, 64 cameras in pieces", 0, 1.0 / 4},
          peer{"gstreamer-cameras", "GStreamer, 64 cameras in pieces", 0, 1.0 / 10}}) {
        measure_cameras(out, each);
    }
}

} // namespace bench
