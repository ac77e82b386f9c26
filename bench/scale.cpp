// The group `scale`: many logins whose devices send 25 frames of 20,000 bytes a second, whole and
// as they come over a network, in segments of 1,448 bytes.
//
// The reference of whole frames is a thread for each connection that is blocked in a large read;
// that of frames in pieces wakes when the frame is whole. Figures are of what a frame costs, so
// that a device that is late changes nothing.
#include "bare_links.h"
#include "child.h"
#include "groups.h"
#include "logins.h"
#include "window.h"

namespace bench
{

namespace
{

struct load {
    int logins;
    bool in_pieces;
    goal wanted;
};

const load loads[] = {{1, false, {}},
                      {16, false, {}},
                      {64, false, {}},
                      {256, false, ratio_at_most(1.35)},
                      {1, true, {}},
                      {16, true, {}},
                      {64, true, ratio_at_most(1.4)}};

using window_list = std::vector<frame_cost>;

void measure(report& out, const load& of)
{
    const device_process device(
        {"feeder", "20000", of.in_pieces ? "1448" : "0", std::to_string(of.logins)});
    const auto by_library = [&](int windows, window_list& into) {
        const login_crowd crowd(device.port(), of.logins, true);
        for (int i = 0; i < windows; i++) {
            into.push_back(watch(crowd));
        }
    };
    const auto by_reference = [&](int windows, window_list& into) {
        const blocked_readers readers(device.port(), of.logins, of.in_pieces);
        for (int i = 0; i < windows; i++) {
            into.push_back(watch(readers));
        }
    };
    // Logging in takes its time, so each side has two windows in a row.
    window_list ours;
    window_list theirs;
    by_reference(1, theirs);
    by_library(2, ours);
    by_reference(2, theirs);
    by_library(2, ours);
    by_reference(2, theirs);
    by_library(1, ours);
    static_assert(rounds == 5, "as many windows of either side");

    const std::string name = std::to_string(of.logins) + (of.logins == 1 ? " login" : " logins") +
                             (of.in_pieces ? ", in pieces" : "");
    row cpu = {name, "% of core", of.wanted};
    row waits = {name + ", waits", "/s login", {}};
    for (std::size_t i = 0; i < ours.size(); i++) {
        const double percent = 100 * of.logins * frames_a_second;
        cpu.add(ours[i].cpu * percent, theirs[i].cpu * percent);
        waits.add(ours[i].waits * frames_a_second, theirs[i].waits * frames_a_second);
    }
    out.add(cpu);
    out.add(waits);
}

} // namespace

void measure_scale(report& out)
{
    out.begin_group("scale", "logins with 25 frames of 20,000 bytes a second, against a blocked "
                             "thread for each connection");
    for (const load& each : loads) {
        measure(out, each);
    }
}

} // namespace bench
