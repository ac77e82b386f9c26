// The options of the soak. See options.h.
#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <random>

namespace soak
{

namespace
{

constexpr int status_wrong_options = 2;

void add_options(CLI::App& app, program_options& into)
{
    app.add_option("MINUTES", into.minutes, "how long the first phase takes [5]")
        ->check(CLI::Range(0.05, 100000.0));
    app.add_option("--cameras", into.cameras, "cameras, each with one login [128]")
        ->check(CLI::Range(1, 256));
    app.add_option("--crowd", into.crowd, "logins of the second phase, 0 for none [256]")
        ->check(CLI::Range(0, 256));
    app.add_option("--threads", into.threads, "threads that make requests [16]")
        ->check(CLI::Range(1, 256));
    app.add_option("--seed", into.seed, "of all that is drawn at random [drawn, and printed]")
        ->check(CLI::Range(1, 1000000));
    app.add_flag("--lose-one", into.lose_one)->group(""); // hidden: the soak must notice it
}

} // namespace

double program_options::crowd_seconds() const
{
    return std::clamp(seconds() / 5, 2.0, 60.0);
}

double program_options::link_life() const
{
    return std::min(15.0, seconds() / 6);
}

command_line read_command_line(int argc, const char* const* argv)
{
    command_line out = {true, 0, {}};
    CLI::App app("Load and time on the library: logins at virtual cameras whose links are dropped "
                 "at random, then a crowd of logins whose links are not. Status 1, with one line, "
                 "when a frame is lost that no drop explains, a request fails while its link is "
                 "up, or threads, descriptors or memory grow.",
                 "soak");
    add_options(app, out.options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        (void)std::fputs(app.help().c_str(), stdout);
        return {false, 0, {}};
    } catch (const CLI::ParseError& error) {
        (void)std::fprintf(stderr, "soak: %s; see soak --help\n", error.what());
        return {false, status_wrong_options, {}};
    }
    if (out.options.seed == 0) {
        out.options.seed = std::random_device()() % 1000000 + 1;
    }
    return out;
}

} // namespace soak
