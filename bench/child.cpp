// This program again. See child.h.
#include "child.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace bench
{

namespace
{

struct pipe_ends {
    descriptor out;
    descriptor in;
};

pipe_ends make_pipe()
{
    int ends[2];
    demand(pipe2(ends, O_CLOEXEC) == 0, "pipe");
    return {descriptor(ends[0]), descriptor(ends[1])};
}

std::vector<std::string> with_role(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "--as");
    return arguments;
}

} // namespace

child::child(const std::string& program, const std::vector<std::string>& arguments)
{
    pipe_ends to = make_pipe();
    pipe_ends from = make_pipe();
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    std::vector<std::string> all = {folder / program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& one : all) {
        argv.push_back(one.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to.out.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from.in.get(), STDOUT_FILENO);
    const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("can't run " + all[0]);
    }
    input = std::move(to.in);
    output = std::move(from.out);
}

child::~child()
{
    input = descriptor();
    waitpid(pid, nullptr, 0);
}

std::string child::read_line()
{
    std::string line;
    char one;
    while (read(output.get(), &one, 1) == 1) {
        if (one == '\n') {
            return line;
        }
        line += one;
    }
    throw std::runtime_error("a process of the benchmark has ended early");
}

device_process::device_process(const std::vector<std::string>& role)
    : device_process("zu_bench", with_role(role))
{
}

device_process::device_process(const std::string& program,
                               const std::vector<std::string>& arguments)
    : process(program, arguments),
      listening_port(static_cast<unsigned short>(std::stoi(process.read_line())))
{
}

} // namespace bench
