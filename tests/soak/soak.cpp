// Load and time on the real library.
//
// First phase: a login at each of 128 virtual cameras; links are dropped at random, requests of all
// kinds come from 16 threads, which also stop and start streams and log out and in. At 10 %, 50 %
// and 100 % of the time there is a roll call: no more drops and requests until every login is up
// and streams, and then the process may hold what the logins account for and no more.
// Second phase: 256 logins, nobody disturbs them, and everything must arrive and be answered. It
// takes a fifth of the first, two seconds at least and a minute at most.
//
// The cameras, and the relay in front of them that drops links, live in a child process
// (camera_side.h), so that memory, threads and descriptors are the library's. How a loss is told
// from a drop is written in ledger.h; how much may grow in report.cpp. The machine is asked, too:
// both processes take their pulse, and the cameras measure how late their frames are.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <malloc.h>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "camera_side.h"
#include "eventually.h"
#include "load.h"
#include "options.h"
#include "process_probe.h"
#include "pulse.h"
#include "report.h"
#include "viewer.h"
#include "virtual_camera/stamp.h"

namespace soak
{

namespace
{

constexpr int threads_of_a_login = 3;
constexpr std::size_t descriptors_of_a_login = 6;
constexpr std::chrono::minutes patience{2};
constexpr std::int64_t second = 1000000;

std::int64_t now()
{
    return static_cast<std::int64_t>(zucam::clock_us());
}

// The lines of the library are too many to show; that they are made is part of the load.
std::atomic<std::int64_t> log_lines{0};

void count_line(int, const char*)
{
    log_lines++;
}

class program
{
public:
    program(const program_options& options, camera_side& cameras)
        : options_(options), cameras_(cameras), around_{cameras, counted_, judged_, options.seed},
          pulse_([&cameras](std::int64_t from, std::int64_t to) {
              cameras.tell({note_kind::stalled, 0, from, to, 0});
          })
    {
        for (std::size_t i = 0; i < std::max(options.cameras, options.crowd); i++) {
            all_.push_back(std::make_unique<viewer>(around_, i));
        }
    }

    // The program's status.
    int run()
    {
        print_head();
        drops_and_requests();
        if (options_.crowd > 0 && good()) {
            crowd();
        }
        const counts at_end = cameras_.ask();
        if (good()) {
            leave();
        }
        return conclude(at_end);
    }

private:
    // ---- the two phases ----

    void drops_and_requests()
    {
        on_each(all_, options_.cameras, [](viewer& each) { each.begin(); });
        int done = 0;
        for (const int percent : {10, 50, 100}) {
            disturb(options_.seconds() * (percent - done) / 100);
            done = percent;
            if (!good()) {
                return;
            }
            roll_call(options_.cameras, std::to_string(percent) + " %");
        }
        if (good() && !growth(table_[1], table_[2]).empty()) {
            judged_.complain(growth(table_[1], table_[2]));
        }
        if (options_.lose_one && good()) {
            lose_a_frame_of(*all_[0]);
        }
        all_out(options_.cameras);
    }

    // Without drops the next one comes on the same link, and so shows the loss.
    void lose_a_frame_of(viewer& who)
    {
        who.lose_one();
        support::eventually([&who] { return who.has_lost_it(); }, patience);
        const std::int64_t seen = who.frames();
        support::eventually([&who, seen] { return who.frames() > seen; }, patience);
    }

    void disturb(double seconds)
    {
        cameras_.tell({note_kind::drops, 0, 1, 0, 0});
        {
            const load requests(all_, options_.cameras, options_.threads,
                                options_.seed + static_cast<std::uint32_t>(1000 * table_.size()),
                                true);
            wait(seconds);
            cameras_.tell({note_kind::drops, 0, 0, 0, 0});
        }
    }

    void crowd()
    {
        const counts before = cameras_.ask();
        on_each(all_, options_.crowd, [](viewer& each) { each.begin(); });
        const std::int64_t frames_before = counted_.frames;
        const std::int64_t begun = now();
        {
            const load requests(all_, options_.crowd, options_.threads, options_.seed, false);
            wait(options_.crowd_seconds());
            std::printf("the crowd received %lld frames a second; %zu are due\n",
                        static_cast<long long>((counted_.frames - frames_before) * second /
                                               (now() - begun)),
                        25 * options_.crowd);
        }
        if (!good()) {
            return;
        }
        roll_call(options_.crowd, "crowd");
        all_out(options_.crowd);
        const counts after = cameras_.ask();
        const std::int64_t lost = (after.frames_lost - after.frames_excused) -
                                  (before.frames_lost - before.frames_excused);
        if (good() && lost > 0) {
            judged_.complain(std::to_string(lost) +
                             " frames of the crowd were lost, and no link was dropped");
        }
    }

    // ---- parts of a phase ----

    // Shows a line every ten seconds; ends early when something is wrong.
    void wait(double seconds)
    {
        const std::int64_t end = now() + static_cast<std::int64_t>(seconds * 1e6);
        std::int64_t asked = now();
        while (now() < end && !judged_.has_complaint()) {
            pulse_.beat(now());
            if (now() - asked >= second) {
                asked = now();
                look(asked);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // sleep: between two beats
        }
        pulse_.pause();
    }

    void look(std::int64_t time)
    {
        const counts of_cameras = cameras_.ask();
        hear(of_cameras);
        if (time - shown_ >= 10 * second) {
            shown_ = time;
            print(read_figures(std::to_string((time - begun_) / second) + " s", counted_,
                               of_cameras));
        }
    }

    // Everybody is up again and streams, and the process holds what logins account for.
    void roll_call(std::size_t logins, const std::string& when)
    {
        std::vector<std::int64_t> seen;
        for (std::size_t i = 0; i < logins; i++) {
            seen.push_back(all_[i]->frames());
        }
        for (std::size_t i = 0; i < logins && good(); i++) {
            if (!support::eventually([&] { return all_[i]->frames() > seen[i]; }, patience)) {
                judged_.complain("camera " + std::to_string(i) + ": no frame for two minutes, " +
                                 "though its link was dropped no more");
            }
        }
        cameras_.tell({note_kind::close_books, 0, 0, 0, 0});
        const belongings held = count_belongings(logins);
        figures at_roll_call = read_figures(when, counted_, cameras_.ask());
        at_roll_call.threads = held.threads;
        at_roll_call.descriptors = held.descriptors;
        table_.push_back(at_roll_call);
        print(table_.back());
    }

    struct belongings {
        int threads;
        std::size_t descriptors;
    };

    // Threads of workers that end may still be there, and at any time a thread that reports an
    // event, a heartbeat for instance. So what counts is that the process is seen once without
    // them.
    belongings count_belongings(std::size_t logins)
    {
        const int threads = threads_before_ + threads_of_a_login * static_cast<int>(logins);
        const std::size_t descriptors = descriptors_before_ + descriptors_of_a_login * logins;
        belongings held = {};
        const bool accounted_for = support::eventually([&] {
            held = {support::thread_count(), support::open_descriptors().size()};
            return held.threads <= threads && held.descriptors <= descriptors;
        });
        if (good() && !accounted_for) {
            judged_.complain("at the roll call " + std::to_string(held.threads) + " threads and " +
                             std::to_string(held.descriptors) +
                             " descriptors, where the logins account for " +
                             std::to_string(threads) + " and " + std::to_string(descriptors));
        }
        return held;
    }

    // Sent is received, plus what was lost with links.
    void all_out(std::size_t logins)
    {
        on_each(all_, logins, [](viewer& each) { each.end(); });
        for (std::size_t i = 0; i < logins; i++) {
            all_[i]->close_account();
        }
        cameras_.tell({note_kind::close_books, 0, 0, 0, 0});
        const counts sums = cameras_.ask();
        hear(sums);
        if (good() && counted_.frames + sums.frames_lost != sums.frames_sent) {
            judged_.complain(std::to_string(sums.frames_sent) + " frames were sent, but " +
                             std::to_string(counted_.frames) + " received and " +
                             std::to_string(sums.frames_lost) + " lost with links");
        }
    }

    // After the last Logout.
    void leave()
    {
        ZU_NET_DEV_DeInit();
        const std::string left = before_.left_over();
        if (!left.empty()) {
            judged_.complain("left behind by the library: " + left);
        }
        if (!cameras_.end()) {
            judged_.complain("the process of the cameras did not end well");
        }
    }

    // ---- the verdict ----

    void hear(const counts& of_cameras)
    {
        if (of_cameras.complaint[0] != '\0') {
            judged_.complain(of_cameras.complaint.data());
        }
    }

    bool good()
    {
        hear(cameras_.ask());
        return !judged_.has_complaint();
    }

    int conclude(const counts& of_cameras) const
    {
        if (!table_.empty()) {
            std::printf("\n");
            print_head();
            for (const figures& each : table_) {
                print(each);
            }
        }
        print_explanations(of_cameras, pulse_.worst());
        std::printf("the library wrote %lld lines at log level 1\n",
                    static_cast<long long>(log_lines));
        if (judged_.has_complaint()) {
            std::printf("soak: FAILED: %s\n", judged_.complaint().c_str());
            return 1;
        }
        std::printf("soak: passed\n");
        return 0;
    }

    const program_options& options_;
    camera_side& cameras_;
    tally counted_;
    verdict judged_;
    surroundings around_;
    viewers all_;
    pulse pulse_;
    std::vector<figures> table_;
    const support::inventory before_;
    const int threads_before_ = support::thread_count();
    const std::size_t descriptors_before_ = support::open_descriptors().size();
    const std::int64_t begun_ = now();
    std::int64_t shown_ = begun_;
};

int run(const program_options& options)
{
    // A freed mapping would raise this limit, and later records would come from the heap, where the
    // two megabytes of a record are resident once they have been used for anything.
    (void)mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    std::printf("seed %u: %zu cameras for %.0f s, then %zu logins for %.0f s; %zu threads make "
                "requests\n",
                options.seed, options.cameras, options.seconds(), options.crowd,
                options.crowd > 0 ? options.crowd_seconds() : 0.0, options.threads);
    (void)std::fflush(stdout);
    const std::size_t most = std::max(options.cameras, options.crowd);
    if (!support::allow_descriptors(10 * most + 200)) {
        std::fprintf(stderr,
                     "soak: the limit of open files is too low; raise it (ulimit -Hn) to "
                     "%zu\n",
                     10 * most + 200);
        return 2;
    }
    camera_side cameras({most, options.seed, options.link_life()});
    ZU_NET_DEV_SetLogLevel(ZU_LOG_LEVEL_ERROR);
    ZU_NET_DEV_SetLogCallback(count_line);
    ZU_NET_DEV_Init();
    program soaking(options, cameras);
    const int status = soaking.run();
    if (status != 0) {
        (void)std::fflush(stdout);
        _exit(status); // logins may be up yet, and call back
    }
    return status;
}

} // namespace

} // namespace soak

int main(int argc, char** argv)
{
    // A page of two megabytes, where the machine hands them out to all, is resident with its first
    // byte, at whatever moment a stack or the heap gets one: memory would grow by leaps.
    (void)prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
    const soak::command_line line = soak::read_command_line(argc, argv);
    if (!line.run) {
        return line.status;
    }
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0); // lines show as they are printed
    try {
        return soak::run(line.options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 2;
    }
}
