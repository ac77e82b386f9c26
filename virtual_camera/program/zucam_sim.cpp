// zucam-sim: virtual cameras as a program.
//
// The main thread waits for signals and nothing else; the cameras run on their own threads, which
// inherit the blocked signals. They are blocked once the options are read and the journal is open,
// for both may take for ever and must be possible to interrupt. SIGINT and SIGTERM end the program
// with status 0, and a second one ends it at once, for a stream that waits for its source is waited
// for. SIGUSR1 drops every link. Wrong options and ports that cannot be had end it with status 2
// and one line.
#include "options.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace
{

using cameras = std::vector<std::unique_ptr<zucam::camera>>;

sigset_t block_signals()
{
    sigset_t awaited;
    (void)sigemptyset(&awaited);
    (void)sigaddset(&awaited, SIGINT);
    (void)sigaddset(&awaited, SIGTERM);
    (void)sigaddset(&awaited, SIGUSR1);
    (void)pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
    return awaited;
}

// From here on SIGINT and SIGTERM end the program, whatever it still waits for.
void let_signals_end_it(const sigset_t& awaited)
{
    (void)std::signal(SIGUSR1, SIG_IGN);
    (void)std::signal(SIGINT, SIG_DFL);
    (void)std::signal(SIGTERM, SIG_DFL);
    (void)pthread_sigmask(SIG_UNBLOCK, &awaited, nullptr);
}

std::shared_ptr<zucam::journal_file> open_journal(const std::string& path)
{
    return path.empty() ? nullptr : std::make_shared<zucam::journal_file>(path);
}

cameras make_cameras(const zucam::program_options& options,
                     std::shared_ptr<zucam::journal_file> journal)
{
    cameras made;
    zucam::camera_options each = options.camera;
    each.journal_limit = 0; // nobody here reads it
    each.journal_to = std::move(journal);
    for (each.index = 0; each.index < options.cameras; ++each.index) {
        made.push_back(std::make_unique<zucam::camera>(each));
        ++each.seed;
        each.port = static_cast<std::uint16_t>(each.port == 0 ? 0 : each.port + 1);
    }
    return made;
}

void print_ports(const cameras& all, const std::string& address)
{
    for (std::size_t i = 0; i < all.size(); ++i) {
        (void)std::printf("camera %zu listening on %s:%u\n", i, address.c_str(),
                          static_cast<unsigned>(all[i]->port()));
    }
    (void)std::fflush(stdout);
}

void serve(const cameras& all, const sigset_t& awaited)
{
    int signal_number = 0;
    while (sigwait(&awaited, &signal_number) == 0 && signal_number == SIGUSR1) {
        for (const auto& each : all) {
            each->drop_links();
        }
    }
}

int run(const zucam::program_options& options)
{
    try {
        auto journal = open_journal(options.journal_path);
        const sigset_t awaited = block_signals();
        const cameras all = make_cameras(options, std::move(journal));
        print_ports(all, options.camera.listen);
        serve(all, awaited);
        let_signals_end_it(awaited);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "zucam-sim: %s\n", error.what());
        return zucam::status_wrong_options;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    (void)std::signal(SIGPIPE, SIG_IGN); // whoever reads our lines may go away
    (void)std::signal(SIGXFSZ, SIG_IGN); // the journal says so itself when it may not grow
    const zucam::command_line line = zucam::read_command_line(argc, argv);
    return line.run ? run(*line.run) : line.status;
}
