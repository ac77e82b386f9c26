// Runs dealt out to worker processes, so that a run that crashes or hangs costs itself alone and is
// named. Each worker keeps to one processor: its threads take turns, and a second one only makes
// handing over dear.
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace torture
{

struct findings {
    std::vector<std::string> breaches;
    std::set<std::string> rows;         // of the table of call sites
    std::map<std::string, long> counts; // sums over all runs
};

// What a run tells the process that has dealt it out; in the worker.
void report_breach(FILE* report, const std::string& text);
void report_row(FILE* report, const std::string& text);
void report_count(FILE* report, const std::string& what, long count);

// Makes the runs 0 to `count` - 1, each with a name for its report, and gathers what they tell.
findings deal_out(size_t count, size_t workers, const std::function<std::string(size_t)>& name,
                  const std::function<void(size_t, FILE*)>& run);

} // namespace torture
