// The benchmarks: what the library costs, each time as a ratio to a reference that is measured
// in the same run and does the same with as little as possible. docs/PERFORMANCE.md tells what the
// figures mean.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "groups.h"
#include "logins.h"
#include "machine.h"
#include "roles.h"
#include "sockets.h"

namespace
{

using namespace bench;

using measure = void (*)(report&);

const std::vector<std::pair<std::string, measure>> groups = {
    {"stream", measure_stream}, {"request", measure_request}, {"scale", measure_scale},
    {"idle", measure_idle},     {"login", measure_login},     {"peers", measure_peers},
};

std::vector<std::string> group_names()
{
    std::vector<std::string> names;
    for (const auto& [name, run] : groups) {
        names.push_back(name);
    }
    return names;
}

void run(const std::string& chosen, const std::string& json_file)
{
    std::printf("%s\n", machine_in_words().c_str());
    const library in_use;
    report out;
    for (const auto& [name, run_group] : groups) {
        if (chosen.empty() || chosen == name) {
            run_group(out);
        }
    }
    if (!json_file.empty()) {
        out.write_json(json_file);
    }
}

int measure_or_play(int argc, char** argv)
{
    if (argc > 2 && std::string(argv[1]) == "--as") {
        return run_role({argv + 2, argv + argc});
    }
    CLI::App options("What the library costs, against references measured in the same run.");
    std::string chosen;
    std::string json_file;
    options.add_option("group", chosen, "one group of figures; all when left out")
        ->check(CLI::IsMember(group_names()));
    options.add_option("--json", json_file, "write the figures of all rounds to this file as well");
    CLI11_PARSE(options, argc, argv);
    run(chosen, json_file);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        bench::allow_many_descriptors();
        return measure_or_play(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench: %s\n", error.what());
        return 1;
    }
}
