// zucam: shows whether a network camera works. main() takes the arguments, lets the command line
// find the command, runs it and turns what it throws into a line and an exit code.
//
// The main thread does all the work; besides it run one that takes signals (stop_signals) and those
// of the library and of the layer above it.
#include "commands/commands.h"
#include "media/av.h"
#include "shared/exit_codes.h"

#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using tool::exit_code;

// A standard descriptor that the caller has closed would become a socket of ours, and what is
// printed would go to the camera. Nothing can be written to what takes its place.
void fill_standard_descriptors()
{
    for (int each = STDIN_FILENO; each <= STDERR_FILENO; ++each) {
        if (fcntl(each, F_GETFD) < 0) {
            (void)open("/dev/null", O_RDONLY); // the lowest number that is free
        }
    }
}

// Before anything is refused: what is wrong with the arguments may have to do with it.
void hide_password_of_environment(tool::console& out)
{
    const char* const password = std::getenv("ZUCAM_PASSWORD");
    out.hide(password != nullptr ? password : "");
}

void add_commands(tool::command_line& line)
{
    tool::add_info(line);
    tool::add_watch(line);
    tool::add_record(line);
    tool::add_snapshot(line);
    tool::add_config(line);
    tool::add_ptz(line);
    tool::add_preset(line);
    tool::add_keyframe(line);
    tool::add_bench(line);
    tool::add_sim(line);
}

void run(std::vector<std::string> arguments, tool::console& out)
{
    tool::stop_signals signals;
    tool::command_line line;
    add_commands(line);
    const tool::action what = line.parse(std::move(arguments), out);
    if (what) {
        tool::toolbox tools = {out, signals, line.options()};
        what(tools);
    }
}

exit_code run_and_tell(std::vector<std::string> arguments, tool::console& out)
{
    try {
        run(std::move(arguments), out);
        return exit_code::done;
    } catch (const tool::failure& failed) {
        out.end_live();
        if (*failed.what() != '\0') {
            out.complain(failed.what());
        }
        return failed.code();
    } catch (const tool::reader_gone&) {
        out.end_live();
        return exit_code::done;
    } catch (const std::exception& error) { // no memory, no threads, no descriptors
        out.end_live();
        out.complain(error.what());
        return exit_code::machine;
    }
}

} // namespace

int main(int argc, char** argv)
{
    fill_standard_descriptors();
    tool::console out;
    hide_password_of_environment(out);
    std::vector<std::string> arguments = tool::take_arguments(argc, argv, out.hidden());
    av_log_set_level(AV_LOG_QUIET); // what goes wrong is told by us
    return static_cast<int>(run_and_tell(std::move(arguments), out));
}
