// Running zucam, and looking at what it leaves. Programs of FFmpeg are run by a shell and found in
// PATH.
#include "zucam_runner.h"

#include "eventually.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace tools
{

namespace fs = std::filesystem;

namespace
{

// No settings of whoever runs the tests.
void clean_environment()
{
    speak_plainly();
    static const std::string nowhere =
        testing::TempDir() + "no-settings." + std::to_string(getpid());
    (void)setenv("XDG_CONFIG_HOME", nowhere.c_str(), 1);
    (void)unsetenv("ZUCAM_USER");
    (void)unsetenv("ZUCAM_PASSWORD");
    (void)setenv("ZUCAM", ZUCAM_TOOL, 1);
}

ended run(const std::string& path, const std::vector<std::string>& arguments)
{
    clean_environment();
    program running(path, arguments);
    const int status = running.exit_status();
    return {status, running.output(), running.errors()};
}

} // namespace

ended zucam(const std::vector<std::string>& arguments)
{
    return run(ZUCAM_TOOL, arguments);
}

ended shell(const std::string& line)
{
    return run("/bin/sh", {"-c", line});
}

std::string address_of(const zucam::camera& camera)
{
    return "127.0.0.1:" + std::to_string(camera.port());
}

std::vector<json> objects_in(const std::string& lines)
{
    std::vector<json> objects;
    std::istringstream from(lines);
    std::string line;
    while (std::getline(from, line)) {
        objects.push_back(json::parse(line));
    }
    return objects;
}

zucam::camera_options small_pictures()
{
    zucam::camera_options options;
    options.width = 320;
    options.height = 180;
    options.gop = 25;
    return options;
}

zucam::camera_options no_pictures()
{
    zucam::camera_options options;
    options.numbered_size = 64;
    options.fps = 50;
    return options;
}

json probe(const std::string& file)
{
    const ended result = shell("exec ffprobe -v error -count_frames -show_streams -show_format "
                               "-print_format json '" +
                               file + "'");
    EXPECT_EQ(result.status, 0) << result.err;
    return json::parse(result.out);
}

std::string complaints(const std::string& file)
{
    // With the times as they are: evened out to a frame rate they would collide.
    const ended result = shell("exec ffmpeg -v error -nostdin -i '" + file +
                               "' -vsync passthrough -enc_time_base -1 -f null -");
    return result.status == 0 ? result.err : result.err + " (failed)";
}

std::size_t frames_in(const std::string& file)
{
    const json told = probe(file);
    for (const json& stream : told.at("streams")) {
        if (stream.at("codec_type") == "video") {
            return std::stoul(stream.at("nb_read_frames").get<std::string>());
        }
    }
    return 0;
}

std::size_t size_of(const std::string& file)
{
    std::error_code missing;
    const auto size = fs::file_size(file, missing);
    return missing ? 0 : size;
}

terminal::terminal(const std::string& path, const std::vector<std::string>& arguments,
                   unsigned short columns)
{
    clean_environment();
    (void)setenv("TERM", "xterm", 1);
    winsize size = {30, columns, 0, 0};
    std::vector<char*> argv = {const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) {
        (void)execv(path.c_str(), argv.data());
        _exit(127);
    }
    if (pid_ < 0) {
        throw std::runtime_error("no terminal");
    }
}

terminal::~terminal()
{
    if (pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    (void)close(master_);
}

// False when nothing came in time, or the program has ended.
bool terminal::read_some()
{
    std::array<char, 4096> piece{};
    pollfd wanted = {master_, POLLIN, 0};
    if (poll(&wanted, 1, static_cast<int>(support::long_enough.count())) <= 0) {
        return false;
    }
    const ssize_t count = read(master_, piece.data(), piece.size());
    if (count > 0) {
        seen_.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0;
}

bool terminal::shows(const std::string& text)
{
    while (seen_.find(text) == std::string::npos) {
        if (!read_some()) {
            return false;
        }
    }
    return true;
}

void terminal::type(const std::string& text) const
{
    EXPECT_EQ(write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void terminal::send_signal(int number) const
{
    (void)kill(pid_, number);
}

bool terminal::echoes() const
{
    termios state = {};
    return tcgetattr(master_, &state) == 0 && (state.c_lflag & ECHO) != 0;
}

int terminal::exit_status()
{
    int status = 0;
    while (read_some()) {
    }
    (void)waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

const std::string& terminal::seen() const
{
    return seen_;
}

} // namespace tools
