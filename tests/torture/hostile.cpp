// Devices that lie, at random.
//
// A run is one login to a lying device and one, the witness, to a good one, in a process of their
// own for that time. One to four lies, drawn from a seed, are told one after the other; the last
// one may cost the connection, and then the login may come back for another. Nothing of it may
// reach the witness, the lying device's login must end in its Logout, and nothing may be left.
//
// Most of a run is waiting, so many worker processes run side by side.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <future>
#include <unistd.h>

#include "hostile_lies.h"
#include "hostile_witness.h"
#include "log_tap.h"
#include "process_probe.h"
#include "sdk_user.h"
#include "workers.h"

namespace
{

using namespace hostile;

constexpr unsigned hanging_after_s = 120; // a run that has not ended by then is ended

const lie& draw_lie(dice& draw, bool in_step)
{
    static const std::vector<lie>& all = quick_lies();
    for (;;) {
        const lie& one =
            all[static_cast<size_t>(draw.between(0, static_cast<int>(all.size()) - 1))];
        if (!in_step || one.then == aftermath::in_step) {
            return one;
        }
    }
}

class random_run
{
public:
    random_run(unsigned seed, FILE* report) : to(report), draw(seed), device(seed + 1)
    {
    }

    // What was wrong.
    std::vector<std::string> make()
    {
        auto good = std::async(std::launch::async, [] { return std::make_unique<witness>(); });
        const int closed_first = draw.one_in(8) ? draw.between(1, 2) : 0;
        const bool up = device.log_in(closed_first);
        const auto beside = good.get();
        beside->begin();
        if (up) {
            be_lied_to();
        }
        if (device.logged_in()) {
            device.log_out();
        }
        std::vector<std::string> wrong = device.breaches();
        for (const std::string& noticed : beside->end()) {
            wrong.push_back(noticed + ", after " + device.telling);
        }
        torture::report_count(to, "connections closed at once", closed_first);
        torture::report_count(to, "frames of good devices", beside->frames());
        torture::report_count(to, "requests to good devices", beside->requests());
        return wrong;
    }

private:
    void be_lied_to()
    {
        for (int left = draw.between(0, 3); left > 0; left--) {
            tell(draw_lie(draw, true));
        }
        const lie& last = draw_lie(draw, false);
        tell(last);
        if (last.then == aftermath::lost && draw.one_in(10) && device.accept_again()) {
            torture::report_count(to, "connected again", 1);
            tell(draw_lie(draw, true));
        }
    }

    void tell(const lie& one)
    {
        device.telling = one.name;
        one.tell(device);
        if (one.then == aftermath::in_step) {
            device.in_step();
        } else {
            device.link_lost();
        }
        torture::report_count(to, std::string("lie: ") + one.name, 1);
    }

    FILE* const to;
    dice draw;
    lying_device device;
};

std::vector<std::string> what_is_left(const support::inventory& before)
{
    std::vector<std::string> wrong;
    const std::string left = before.left_over();
    if (!left.empty()) {
        wrong.push_back("left over: " + left);
    }
    for (const zu_sdk_user* user : sdk_users) {
        if (user != nullptr) {
            wrong.emplace_back("a slot is still taken");
        }
    }
    return wrong;
}

void run_with(unsigned seed, const std::string& name, FILE* report)
{
    alarm(hanging_after_s);
    std::vector<std::string> wrong;
    const support::inventory before;
    {
        const support::log_tap silent(1);
        const support::library lib;
        wrong = random_run(seed, report).make();
    }
    for (const std::string& left : what_is_left(before)) {
        wrong.push_back(left);
    }
    for (const std::string& breach : wrong) {
        torture::report_breach(report, name + ": " + breach);
    }
    alarm(0);
}

int run_at_random(unsigned first_seed, size_t runs, size_t workers)
{
    const auto start = std::chrono::steady_clock::now();
    const auto seed_of = [&](size_t i) { return first_seed + static_cast<unsigned>(i); };
    const auto name = [&](size_t i) { return "seed " + std::to_string(seed_of(i)); };
    const torture::findings found =
        torture::deal_out(runs, workers, name,
                          [&](size_t i, FILE* report) { run_with(seed_of(i), name(i), report); });
    for (const auto& [what, count] : found.counts) {
        printf("%s: %ld\n", what.c_str(), count);
    }
    for (const std::string& breach : found.breaches) {
        printf("%s\n", breach.c_str());
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    printf("%zu runs with lying devices, %zu breaches, %.0f s\n", runs, found.breaches.size(),
           took.count());
    return found.breaches.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Devices that lie, drawn from seeds.");
    size_t runs = 100;
    unsigned first_seed = 1;
    size_t workers = 24;
    app.add_option("--runs", runs, "how many");
    app.add_option("--seed", first_seed, "the first of them");
    app.add_option("--workers", workers, "worker processes")->check(CLI::Range(1, 64));
    CLI11_PARSE(app, argc, argv);
    return run_at_random(first_seed, runs, workers);
}
