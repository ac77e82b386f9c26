// The group `request`: round trips of requests and what they cost the client, with 1, 8 and 32
// callers at one login, against the same hops with nothing around them.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <numeric>
#include <thread>

#include "bare_path.h"
#include "child.h"
#include "groups.h"
#include "logins.h"
#include "usage.h"

namespace bench
{

namespace
{

using ask = std::function<void()>;
using steady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds round_time{400};

// One round by one way.
struct outcome {
    double p50; // microseconds
    double p99;
    double cpu; // microseconds of a request
};

// Asks again and again until told to stop; the times in microseconds.
std::vector<double> keep_asking(const ask& once, const std::atomic<bool>& stop)
{
    std::vector<double> times;
    while (!stop) {
        const auto begun = steady::now();
        once();
        times.push_back(std::chrono::duration<double, std::micro>(steady::now() - begun).count());
    }
    return times;
}

double percentile(const std::vector<double>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

outcome run_round(int callers, const ask& once)
{
    std::vector<std::vector<double>> times(static_cast<std::size_t>(callers));
    std::vector<std::thread> threads;
    std::atomic<bool> stop{false};
    const usage before = usage::now();
    for (auto& own : times) {
        threads.emplace_back([&] { own = keep_asking(once, stop); });
    }
    std::this_thread::sleep_for(round_time);
    stop = true;
    for (std::thread& each : threads) {
        each.join();
    }
    const double cpu = usage::now().since(before).cpu;

    std::vector<double> all;
    for (const auto& own : times) {
        all.insert(all.end(), own.begin(), own.end());
    }
    std::sort(all.begin(), all.end());
    return {percentile(all, 0.5), percentile(all, 0.99),
            cpu * 1e6 / static_cast<double>(all.size())};
}

void measure(report& out, int callers, const login& own, const bare_path& bare)
{
    const std::string name = std::to_string(callers) + (callers == 1 ? " caller, " : " callers, ");
    const goal wanted = ratio_at_most(callers > 8 ? 1.25 : 1.2);
    row p50 = {name + "median round trip", "us", wanted};
    row p99 = {name + "99th percentile", "us", {}};
    row cpu = {name + "CPU of a request", "us", wanted};
    for (int round = 0; round <= rounds; round++) {
        const outcome theirs = run_round(callers, [&] { bare.request(); });
        const outcome ours = run_round(callers, [&] { ZU_NET_DEV_MakeKeyFrame(own.handle(), 11); });
        if (round > 0) { // the first warms up
            p50.add(ours.p50, theirs.p50);
            p99.add(ours.p99, theirs.p99);
            cpu.add(ours.cpu, theirs.cpu);
        }
    }
    out.add(p50);
    out.add(p99);
    out.add(cpu);
}

} // namespace

void measure_request(report& out)
{
    out.begin_group("request", "requests, against the same hops (datagram, thread, connection, "
                               "device, thread, datagram) with nothing around them");
    const device_process device({"blaster", "320", "0"});
    const login own(device.port());
    const bare_path bare(device.port());
    for (const int callers : {1, 8, 32}) {
        measure(out, callers, own, bare);
    }
}

} // namespace bench
