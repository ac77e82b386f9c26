// Runs dealt out to worker processes. See workers.h.
//
// A worker's report is a temporary file of lines: "begin N" before each run, what the run tells,
// and "done" at the end.
#include "workers.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture
{

namespace
{

struct worker {
    pid_t child;
    FILE* report;
};

[[noreturn]] void give_up(const char* why)
{
    fprintf(stderr, "%s\n", why);
    exit(3);
}

void stay_on_one_processor(size_t which)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(which % static_cast<size_t>(sysconf(_SC_NPROCESSORS_ONLN)), &one);
    sched_setaffinity(0, sizeof(one), &one); // without it the runs take longer, no more
}

class dealer
{
public:
    dealer(size_t runs, size_t processes, const std::function<std::string(size_t)>& name,
           const std::function<void(size_t, FILE*)>& run)
        : count(runs), workers(processes), name_of(name), make(run)
    {
    }

    findings deal()
    {
        std::vector<worker> working;
        for (size_t first = 0; first < workers; first++) {
            working.push_back(start(first));
        }
        // A worker that has not come to its end goes on behind the run that it died of.
        while (!working.empty()) {
            const worker one = working.back();
            working.pop_back();
            int status = 0;
            waitpid(one.child, &status, 0);
            if (const auto died_at = read(one.report)) {
                all.breaches.push_back(name_of(*died_at) + ": the process ended, status " +
                                       std::to_string(status));
                working.push_back(start(*died_at + workers));
            }
            fclose(one.report);
        }
        return all;
    }

private:
    worker start(size_t first)
    {
        fflush(nullptr);
        worker fresh = {0, tmpfile()};
        if (fresh.report == nullptr || (fresh.child = fork()) < 0) {
            give_up("a worker process can't be started");
        }
        if (fresh.child == 0) {
            stay_on_one_processor(first);
            work(first, fresh.report);
            _exit(0);
        }
        return fresh;
    }

    void work(size_t first, FILE* report)
    {
        for (size_t i = first; i < count; i += workers) {
            fprintf(report, "begin %zu\n", i);
            fflush(report);
            make(i, report);
        }
        fprintf(report, "done\n");
        fflush(report);
    }

    // Returns the run that the worker was at when it ended, or nothing when it has made them all.
    std::optional<size_t> read(FILE* report)
    {
        std::optional<size_t> at;
        char buffer[4096];
        rewind(report);
        while (fgets(buffer, sizeof(buffer), report) != nullptr) {
            const std::string line(buffer, strcspn(buffer, "\n"));
            if (line.rfind("row ", 0) == 0) {
                all.rows.insert(line.substr(4));
            } else if (line.rfind("breach ", 0) == 0) {
                all.breaches.push_back(line.substr(7));
            } else if (line.rfind("count ", 0) == 0) {
                const size_t blank = line.rfind(' ');
                all.counts[line.substr(6, blank - 6)] += std::stol(line.substr(blank));
            } else if (line.rfind("begin ", 0) == 0) {
                at = std::stoul(line.substr(6));
            } else if (line == "done") {
                return std::nullopt;
            }
        }
        if (!at) {
            give_up("a worker process has not begun");
        }
        return at;
    }

    const size_t count;
    const size_t workers;
    const std::function<std::string(size_t)>& name_of;
    const std::function<void(size_t, FILE*)>& make;
    findings all;
};

} // namespace

void report_breach(FILE* report, const std::string& text)
{
    fprintf(report, "breach %s\n", text.c_str());
}

void report_row(FILE* report, const std::string& text)
{
    fprintf(report, "row %s\n", text.c_str());
}

void report_count(FILE* report, const std::string& what, long count)
{
    fprintf(report, "count %s %ld\n", what.c_str(), count);
}

findings deal_out(size_t count, size_t workers, const std::function<std::string(size_t)>& name,
                  const std::function<void(size_t, FILE*)>& run)
{
    return dealer(count, workers, name, run).deal();
}

} // namespace torture
