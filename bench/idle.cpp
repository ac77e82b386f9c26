// The group `idle`: 256 logins at which nothing happens but heartbeats, against as many connections
// at which the same is done, with nothing around it: the state asked for every 30 milliseconds, a
// look every half second, and the heartbeats.
#include <chrono>
#include <thread>

#include "bare_links.h"
#include "child.h"
#include "groups.h"
#include "logins.h"
#include "usage.h"

namespace bench
{

namespace
{

constexpr int logins = 256;
constexpr std::chrono::seconds window{3}; // one heartbeat of each login

double percent_of_core()
{
    const usage before = usage::now();
    std::this_thread::sleep_for(window);
    const usage used = usage::now().since(before);
    return used.cpu / used.wall * 100;
}

} // namespace

void measure_idle(report& out)
{
    out.begin_group("idle",
                    "256 logins at which nothing happens, against connections with the same "
                    "polls and heartbeats and nothing around them");
    const device_process device({"feeder", "20000", "0", "0", "1"});
    row figure = {"256 logins", "% of core", ratio_at_most(0.65)};
    for (int round = 0; round < rounds; round++) {
        double theirs = 0;
        {
            const idle_connections reference(device.port(), logins);
            theirs = percent_of_core();
        }
        const login_crowd crowd(device.port(), logins, false);
        figure.add(percent_of_core(), theirs);
    }
    out.add(figure);
}

} // namespace bench
