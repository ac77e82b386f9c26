// The group `scale`: many logins at cameras that send 25 frames of 20,000 bytes a second and a
// block of sound every 20 milliseconds; the frames whole, and as they come over a network, in
// segments of 1,448 bytes. Pictures without sound are measured too: then the library's own polls
// weigh most.
//
// The reference of whole frames is a thread for each connection that is blocked in a large read;
// that of frames in pieces wakes when the frame is whole. Figures are of what a block costs, so
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

constexpr int frames = 25; // a second
constexpr int sounds = 50;

struct load {
    int logins;
    bool in_pieces;
    bool with_sound;
    goal wanted;
};

const load loads[] = {{1, false, true, {}},
                      {16, false, true, {}},
                      {64, false, true, {}},
                      {256, false, true, ratio_at_most(1.35)},
                      {1, true, true, {}},
                      {16, true, true, {}},
                      {64, true, true, ratio_at_most(1.4)},
                      {256, true, true, {}},
                      {256, false, false, {}}};

using window_list = std::vector<block_cost>;

void measure(report& out, const load& of)
{
    const device_process device({"feeder", "20000", of.in_pieces ? "1448" : "0",
                                 of.with_sound ? "320" : "0", std::to_string(of.logins)});
    const auto by_library = [&](int windows, window_list& into) {
        const login_crowd crowd(device.port(), of.logins, true);
        warm_up(crowd);
        for (int i = 0; i < windows; i++) {
            into.push_back(watch(crowd));
        }
    };
    const auto by_reference = [&](int windows, window_list& into) {
        const blocked_readers readers(device.port(), of.logins, of.in_pieces);
        warm_up(readers);
        for (int i = 0; i < windows; i++) {
            into.push_back(watch(readers));
        }
    };
    // Logging in takes its time, so each side has its windows in a row.
    window_list ours;
    window_list theirs;
    by_reference(2, theirs);
    by_library(3, ours);
    by_reference(3, theirs);
    by_library(2, ours);
    static_assert(rounds == 5, "as many windows of either side");

    const std::string name = std::to_string(of.logins) + (of.logins == 1 ? " login" : " logins") +
                             (of.in_pieces ? ", in pieces" : "") +
                             (of.with_sound ? "" : ", no sound");
    const double a_second = of.with_sound ? frames + sounds : frames;
    row cpu = {name, "% of core", of.wanted};
    row waits = {name + ", waits", "/s login", {}};
    for (std::size_t i = 0; i < ours.size(); i++) {
        const double percent = 100 * of.logins * a_second;
        cpu.add(ours[i].cpu * percent, theirs[i].cpu * percent);
        waits.add(ours[i].waits * a_second, theirs[i].waits * a_second);
    }
    out.add(cpu);
    out.add(waits);
}

} // namespace

void measure_scale(report& out)
{
    out.begin_group("scale",
                    "logins at cameras with 25 frames of 20,000 bytes and 50 blocks of sound "
                    "a second, against a blocked thread for each connection");
    for (const load& each : loads) {
        measure(out, each);
    }
}

} // namespace bench
