// zucam sim: becomes the virtual camera, zucam-sim. It is looked for beside this program, where the
// build puts it, and in PATH; its arguments are handed on as they are.
#include "commands/commands.h"
#include "shared/exit_codes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fmt/format.h>
#include <unistd.h>

namespace tool
{

namespace
{

const std::string simulator = "zucam-sim";

std::string own_folder()
{
    std::array<char, PATH_MAX> path = {};
    const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
    const std::string whole(path.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    return whole.substr(0, whole.rfind('/') + 1);
}

bool has_port(const std::vector<std::string>& arguments)
{
    return std::any_of(arguments.begin(), arguments.end(), [](const std::string& each) {
        return each == "--port" || each.compare(0, 7, "--port=") == 0;
    });
}

// Returns only when there is no such program.
void execute(const std::string& path, std::vector<std::string>& arguments)
{
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& each : arguments) {
        argv.push_back(each.data());
    }
    argv.push_back(nullptr);
    (void)execvp(path.c_str(), argv.data());
}

// Without a port it would be another one each time; this is the one that zucam looks at.
void sim(toolbox& tools, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), simulator);
    if (!has_port(arguments)) {
        arguments.insert(arguments.end(), {"--port", "9000"});
    }
    tools.signals.hand_back();
    const std::string beside = own_folder();
    for (const std::string& folder : {beside, beside + "../../virtual_camera/", std::string()}) {
        execute(folder + simulator, arguments);
        if (errno != ENOENT && errno != ENOTDIR && errno != EACCES) {
            break;
        }
    }
    throw failure(exit_code::machine,
                  fmt::format("zucam-sim cannot be started: {}; it is built with the virtual "
                              "camera, and looked for in {} and in PATH",
                              std::strerror(errno), beside));
}

} // namespace

void add_sim(command_line& line)
{
    command sub = line.add("sim", "Becomes a virtual camera, on 127.0.0.1:9000.",
                           "  zucam sim\n"
                           "  zucam sim --codec h265 --size 640x360\n"
                           "  zucam sim --drop-after 10       (zucam sim --help tells all)\n");
    sub.hands_on(sim);
}

} // namespace tool
