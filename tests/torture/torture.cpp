// The library on a machine on which everything fails.
//
// "calls": every call that the library makes of the system fails, one after the other. A first run
// without a fault counts the calls. Then for each of them, and for each error that it can end with:
// a run in which that call fails once, and one in which it fails from then on; for calls that move
// bytes also runs in which it moves one byte, once and from then on. Every run must leave the
// process standing, every entry point with the result and lines it promises, and nothing behind
// (scenario.h); what a failure leads to at once must stand in the table (call_sites.txt).
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>

#include "call_sites.h"
#include "random_life.h"
#include "scenario.h"
#include "workers.h"

namespace
{

using namespace torture;

// One fault: the call with this number, counted over the whole run, and perhaps the later ones of
// its site.
struct plan {
    size_t nth;
    sim::place site;
    int error; // 0: moves one byte
    bool from_then_on;
};

struct counted_call {
    std::string function;
    sim::place from;
};

std::vector<counted_call> count_calls()
{
    std::vector<counted_call> calls;
    watcher counting;
    counting.before_call = [&](const sim::call& made) {
        calls.push_back({made.function, made.from});
        return sim::verdict{};
    };
    const outcome out = play(counting);
    if (!out.undisturbed()) {
        sim::give_up("the run without a fault is not undisturbed: " +
                     (out.breaches.empty() ? "results or events" : out.breaches.front()));
    }
    return calls;
}

bool moves_bytes(const std::string& function)
{
    return function == "recv" || function == "send" || function == "read";
}

std::vector<plan> make_plans(const std::vector<counted_call>& calls)
{
    std::vector<plan> plans;
    for (size_t nth = 0; nth < calls.size(); nth++) {
        std::vector<int> errors = errors_of(calls[nth].function);
        if (moves_bytes(calls[nth].function)) {
            errors.push_back(0);
        }
        for (const int error : errors) {
            plans.push_back({nth, calls[nth].from, error, false});
            if (may_go_on(calls[nth].function, error)) {
                plans.push_back({nth, calls[nth].from, error, true});
            }
        }
    }
    return plans;
}

// What follows a failure on its thread, until that thread does anything else of note.
class consequence
{
public:
    void struck(unsigned on_thread, const std::string& during)
    {
        thread = on_thread;
        entry_point = during;
        listening = true;
    }
    void heard(const told& line)
    {
        if (listening && line.thread == thread) {
            text = std::to_string(line.type) + " " + line.message;
            listening = false;
        }
    }
    void called(unsigned by, const std::string& function)
    {
        static const std::set<std::string> of_no_note = {
            "close",    "gettimeofday", "localtime_r", "perror", "pthread_mutex_unlock",
            "shutdown", "time"};
        if (listening && by == thread && of_no_note.count(function) == 0) {
            listening = false;
        }
    }
    const std::string& line() const
    {
        return text;
    }
    const std::string& under_way() const
    {
        return entry_point;
    }

private:
    bool listening = false;
    unsigned thread = 0;
    std::string entry_point;
    std::string text = "-";
};

// One run with one fault.
class strike
{
public:
    explicit strike(const plan& what) : planned(what)
    {
    }

    void run()
    {
        watcher by;
        by.before_call = [this](const sim::call& made) { return judge(made); };
        by.on_line = [this](const told& line) { after.heard(line); };
        by.on_entry = [this](const std::string& name) { entry_point = name; };
        out = play(by);
        if (!has_struck) {
            out.breaches.push_back("the call to fail was never made");
        }
    }

    // The row of the table that the run has come to; the result is that of the entry point that was
    // under way on the failing thread.
    std::string row(const site_names& sites) const
    {
        std::string result = "-";
        for (const entry& made : out.entries) {
            if (made.name == after.under_way()) {
                result = std::to_string(made.result);
                break;
            }
        }
        return table_row(sites[planned.site], planned.error, result, after.line());
    }

    const std::vector<std::string>& breaches() const
    {
        return out.breaches;
    }

private:
    sim::verdict judge(const sim::call& made)
    {
        const unsigned thread = sim::machine::current().threads.thread_number();
        after.called(thread, made.function);
        const size_t number = count++;
        const bool hit = number == planned.nth || (planned.from_then_on && number > planned.nth &&
                                                   made.from == planned.site);
        if (!hit) {
            return {};
        }
        if (!has_struck) {
            has_struck = true;
            after.struck(thread, thread == 0 ? entry_point : "");
        }
        sim::verdict how;
        if (planned.error != 0) {
            how.error = planned.error;
        } else {
            how.at_most = 1;
        }
        return how;
    }

    const plan planned;
    outcome out;
    consequence after;
    std::string entry_point;
    size_t count = 0;
    bool has_struck = false;
};

std::string describe(const plan& p, const site_names& sites)
{
    return "call " + std::to_string(p.nth) + ", " + sites[p.site] + ", " +
           (p.error != 0 ? error_name(p.error) : "one byte") +
           (p.from_then_on ? ", from then on" : ", once");
}

// One run; breaches and table rows go to the report.
void run_plan(const plan& planned, const site_names& sites, FILE* report)
{
    strike one(planned);
    one.run();
    for (const std::string& breach : one.breaches()) {
        report_breach(report, describe(planned, sites) + ": " + breach);
    }
    if (planned.error != 0 && !planned.from_then_on) {
        report_row(report, one.row(sites));
    }
}

// So many of them, evenly spread; 0: all.
template <class Run>
std::vector<Run> sample(const std::vector<Run>& all, size_t how_many)
{
    if (how_many == 0 || how_many >= all.size()) {
        return all;
    }
    std::vector<Run> out;
    for (size_t i = 0; i < how_many; i++) {
        out.push_back(all[i * all.size() / how_many]);
    }
    return out;
}

// Prints what was found and the totals; the program's status.
int conclude(const std::vector<std::string>& wrong, const std::string& totals,
             std::chrono::steady_clock::time_point since)
{
    for (const std::string& line : wrong) {
        printf("%s\n", line.c_str());
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - since;
    printf("%s, %.1f s, %zu findings\n", totals.c_str(), took.count(), wrong.size());
    return wrong.empty() ? 0 : 1;
}

// Runs by their names, which also stand in front of what the simulation has to say when it gives
// up.
findings make_runs(size_t count, size_t workers, const std::function<std::string(size_t)>& name,
                   const std::function<void(size_t, FILE*)>& run)
{
    return deal_out(count, workers, name, [&](size_t i, FILE* report) {
        sim::set_run_name(name(i));
        run(i, report);
    });
}

int fail_every_call(const std::string& table, size_t how_many, size_t workers, bool write_rows)
{
    const auto start = std::chrono::steady_clock::now();
    const expectations expected(table);
    const std::vector<counted_call> calls = count_calls();
    std::map<sim::place, std::string> places;
    for (const counted_call& made : calls) {
        places[made.from] = made.function;
    }
    const site_names sites(places);
    const std::vector<plan> plans = sample(make_plans(calls), how_many);
    findings found = make_runs(
        plans.size(), workers, [&](size_t i) { return describe(plans[i], sites); },
        [&](size_t i, FILE* report) { run_plan(plans[i], sites, report); });
    for (const std::string& row : found.rows) {
        if (write_rows) {
            printf("%s\n", row.c_str());
        }
    }
    for (const std::string& difference : expected.differences(found.rows, how_many == 0)) {
        found.breaches.push_back(difference);
    }
    return conclude(found.breaches,
                    std::to_string(sites.count()) + " call sites, " + std::to_string(calls.size()) +
                        " calls, " + std::to_string(plans.size()) + " runs",
                    start);
}

// A Logout on a thread of its own at one moment: when the call with this number is about to be
// made, which then comes so much late.
struct moment {
    size_t nth;
    sim::micros late;
    const char* greeting; // of the device, see play
};

std::vector<moment> make_moments(size_t calls)
{
    std::vector<moment> moments;
    for (size_t nth = 0; nth < calls; nth++) {
        for (const sim::micros late : {0 * sim::milliseconds, 30 * sim::milliseconds,
                                       700 * sim::milliseconds, 4 * sim::seconds}) {
            moments.push_back({nth, late, ""});
            moments.push_back({nth, late, "half a"}); // header, which keeps the receiver busy
        }
    }
    return moments;
}

outcome log_out_at(const moment& then)
{
    size_t count = 0;
    watcher by;
    by.before_call = [&](const sim::call& made) {
        if (count++ == then.nth) {
            log_out_beside();
            // Whoever holds the mutex is not made to wait in it.
            if (then.late > 0 && std::string(made.function).find("mutex") == std::string::npos) {
                sim::machine::current().let_pass(then.late);
            }
        }
        return sim::verdict{};
    };
    return play(by, then.greeting);
}

int log_out_at_every_moment(size_t how_many, size_t workers)
{
    const auto start = std::chrono::steady_clock::now();
    const std::vector<moment> moments = sample(make_moments(count_calls().size()), how_many);
    const auto name = [&](size_t i) {
        return "Logout at call " + std::to_string(moments[i].nth) + ", which is late by " +
               std::to_string(moments[i].late / sim::milliseconds) + " ms" +
               (*moments[i].greeting != 0 ? ", half headers" : "");
    };
    const findings found = make_runs(moments.size(), workers, name, [&](size_t i, FILE* report) {
        for (const std::string& breach : log_out_at(moments[i]).breaches) {
            report_breach(report, name(i) + ": " + breach);
        }
    });
    return conclude(found.breaches, std::to_string(moments.size()) + " moments of a Logout", start);
}

int live_at_random(unsigned first_seed, size_t how_many, size_t workers)
{
    const auto start = std::chrono::steady_clock::now();
    const auto seed_of = [&](size_t i) { return first_seed + static_cast<unsigned>(i); };
    const findings found = make_runs(
        how_many, workers, [&](size_t i) { return "seed " + std::to_string(seed_of(i)); },
        [&](size_t i, FILE* report) {
            const life_story story = live_randomly(seed_of(i));
            for (const std::string& breach : story.breaches) {
                report_breach(report, "seed " + std::to_string(seed_of(i)) + ": " + breach);
            }
            for (const auto& [what, count] : story.counts) {
                report_count(report, what, count);
            }
        });
    for (const auto& [what, count] : found.counts) {
        printf("%s: %ld\n", what.c_str(), count);
    }
    return conclude(found.breaches, std::to_string(how_many) + " random lives", start);
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("The library on a machine on which everything fails.");
    size_t workers = 2;
    app.add_option("--workers", workers, "worker processes")->check(CLI::Range(1, 64));
    app.require_subcommand(1);

    size_t how_many = 0;
    std::string table;
    bool write_rows = false;
    CLI::App* calls = app.add_subcommand("calls", "fail every call, once and from then on");
    calls->add_option("--table", table, "what each failure must lead to")->required();
    calls->add_option("--sample", how_many, "so many of the runs, evenly spread; 0: all of them");
    calls->add_flag("--write-rows", write_rows, "print the rows that were met");

    CLI::App* logouts = app.add_subcommand("logouts", "a second Logout at every moment");
    logouts->add_option("--sample", how_many, "so many of the runs, evenly spread; 0: all of them");

    size_t lives = 1000;
    unsigned first_seed = 1;
    CLI::App* random = app.add_subcommand("random", "lives drawn from seeds");
    random->add_option("--runs", lives, "how many");
    random->add_option("--seed", first_seed, "the first of them");
    CLI11_PARSE(app, argc, argv);

    if (calls->parsed()) {
        return fail_every_call(table, how_many, workers, write_rows);
    }
    return logouts->parsed() ? log_out_at_every_moment(how_many, workers)
                             : live_at_random(first_seed, lives, workers);
}
