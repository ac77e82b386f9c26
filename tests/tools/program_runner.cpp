// Starts programs by posix_spawn with a pipe for each of their outputs.
// Both pipes are read to their ends before the status is asked for; the
// programs under test write little to standard error, so reading one
// after the other cannot block them.
#include "program_runner.h"

#include "camera_client.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace tools
{

namespace
{

std::array<int, 2> make_pipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return ends;
}

// Appends what one read brings; false at the end, or when patience ends.
bool read_some(int from, std::string& into)
{
    std::array<char, 4096> piece{};
    pollfd wanted = {from, POLLIN, 0};
    const auto limit = std::chrono::milliseconds(patience).count();
    if (poll(&wanted, 1, static_cast<int>(limit)) <= 0) {
        return false;
    }
    const ssize_t count = read(from, piece.data(), piece.size());
    if (count > 0) {
        into.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0;
}

// The next line of what has not been asked for yet, without its end. All that is read is in `all`.
std::string line_of(int from, std::string& all, std::string& waiting)
{
    std::size_t end = 0;
    while ((end = waiting.find('\n')) == std::string::npos) {
        const std::size_t before = all.size();
        if (!read_some(from, all)) {
            return "";
        }
        waiting += all.substr(before);
    }
    const std::string line = waiting.substr(0, end);
    waiting.erase(0, end + 1);
    return line;
}

} // namespace

program::program(const std::string& path, const std::vector<std::string>& arguments)
{
    speak_plainly();
    const std::array<int, 2> out = make_pipe();
    const std::array<int, 2> err = make_pipe();
    out_ = out[0];
    err_ = err[0];
    std::vector<char*> argv = {const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    (void)posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    // A shell that runs the tests in the background has them ignore an interruption.
    sigset_t usual;
    (void)sigemptyset(&usual);
    (void)sigaddset(&usual, SIGINT);
    (void)sigaddset(&usual, SIGQUIT);
    posix_spawnattr_t attributes;
    (void)posix_spawnattr_init(&attributes);
    (void)posix_spawnattr_setsigdefault(&attributes, &usual);
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int result =
        posix_spawn(&pid_, path.c_str(), &actions, &attributes, argv.data(), environ);
    (void)posix_spawnattr_destroy(&attributes);
    (void)posix_spawn_file_actions_destroy(&actions);
    (void)close(out[1]);
    (void)close(err[1]);
    if (result != 0) {
        pid_ = -1;
        throw std::runtime_error("cannot start " + path);
    }
}

program::~program()
{
    if (pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    (void)close(out_);
    (void)close(err_);
}

void speak_plainly()
{
    (void)setenv("LC_ALL", "C", 1);
}

std::string program::next_line()
{
    return line_of(out_, output_, line_buffer_);
}

std::string program::next_error_line()
{
    return line_of(err_, errors_, error_buffer_);
}

void program::send_signal(int number) const
{
    (void)kill(pid_, number);
}

pid_t program::pid() const
{
    return pid_;
}

void program::read_rest()
{
    while (read_some(out_, output_)) {
    }
    while (read_some(err_, errors_)) {
    }
}

int program::exit_status()
{
    int status = 0;
    read_rest();
    (void)waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

std::string program::output()
{
    return output_;
}

std::string program::errors()
{
    return errors_;
}

std::uint16_t port_in(const std::string& line, int camera)
{
    const std::string start = "camera " + std::to_string(camera) + " listening on 127.0.0.1:";
    if (line.compare(0, start.size(), start) != 0) {
        return 0;
    }
    return static_cast<std::uint16_t>(std::atoi(line.c_str() + start.size()));
}

} // namespace tools
