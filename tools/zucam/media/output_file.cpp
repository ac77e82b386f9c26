// Writing with write(2), in pieces that a pipe takes at once, so that a reader that has stopped to
// read cannot keep us from ending.
#include "media/output_file.h"

#include "shared/exit_codes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool
{

namespace
{

const std::string standard_output = "-";
constexpr std::chrono::milliseconds one_turn{100};
constexpr int patience_at_end = 1000; // ms that a pipe gets when the end has been asked for

failure cannot_write(const std::string& name, int why)
{
    const std::string what = name == standard_output ? "standard output" : name;
    return {exit_code::output, "cannot write " + what + ": " + std::strerror(why)};
}

std::string folder_of(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : name.substr(0, slash);
}

// One that nobody reads yet is waited for, but not when the end is asked for.
int open_pipe(const std::string& name, const stop_signals& signals)
{
    for (;;) {
        const int descriptor = open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (descriptor >= 0 || errno != ENXIO) {
            return descriptor;
        }
        if (signals.asked_to_end()) {
            throw interrupted();
        }
        signals.wait(one_turn);
    }
}

int open_for_writing(const std::string& name, bool replace, const stop_signals& signals)
{
    struct stat state = {};
    const bool is_there = stat(name.c_str(), &state) == 0;
    const bool device = is_there && !S_ISREG(state.st_mode);
    if (is_there && S_ISFIFO(state.st_mode)) {
        return open_pipe(name, signals);
    }
    const int how = replace || device ? O_TRUNC : O_EXCL;
    return open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | how, 0666);
}

} // namespace

output_file::output_file(const std::string& name, bool replace, const stop_signals& signals)
    : name_(name), signals_(signals)
{
    descriptor_ =
        name == standard_output ? STDOUT_FILENO : open_for_writing(name, replace, signals);
    struct stat state = {};
    if (descriptor_ < 0 || fstat(descriptor_, &state) != 0) {
        throw cannot_write(name, errno);
    }
    is_file_ = S_ISREG(state.st_mode);
}

output_file::~output_file()
{
    if (descriptor_ != STDOUT_FILENO) {
        (void)close(descriptor_);
    }
}

bool output_file::wait_for_reader() const
{
    std::array<pollfd, 2> wanted = {
        {{descriptor_, POLLOUT, 0}, {signals_.descriptor(), POLLIN, 0}}};
    while (wanted[0].revents == 0) {
        const bool ending = signals_.asked_to_end();
        const int count = poll(wanted.data(), ending ? 1 : 2, ending ? patience_at_end : -1);
        if (count == 0) {
            return false;
        }
    }
    return true;
}

bool output_file::write(const std::uint8_t* data, std::size_t size)
{
    while (size > 0 && failed_ == 0) {
        if (!is_file_ && !wait_for_reader()) {
            failed_ = EINTR;
            break;
        }
        const std::size_t piece = is_file_ ? size : std::min<std::size_t>(size, PIPE_BUF);
        const ssize_t count = ::write(descriptor_, data, piece);
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
            position_ += static_cast<std::uint64_t>(count);
            size_ = std::max(size_, position_);
        } else if (count == 0) {
            failed_ = ENOSPC;
        } else if (errno != EINTR && errno != EAGAIN) {
            failed_ = errno;
        }
    }
    return failed_ == 0;
}

// Standard output may be a file that others write too, or have written: it is only added to.
bool output_file::can_seek() const
{
    return is_file_ && descriptor_ != STDOUT_FILENO;
}

std::int64_t output_file::seek(std::int64_t to, int whence)
{
    const off_t reached = lseek(descriptor_, to, whence);
    position_ = reached < 0 ? position_ : static_cast<std::uint64_t>(reached);
    return reached;
}

std::uint64_t output_file::size() const
{
    return size_;
}

void output_file::check() const
{
    switch (failed_) {
    case 0:
        return;
    case EINTR:
        throw interrupted();
    case EPIPE:
        if (name_ == standard_output) {
            throw reader_gone();
        }
        throw cannot_write(name_, failed_);
    default:
        throw cannot_write(name_, failed_);
    }
}

void check_output_folder(const std::string& name)
{
    if (name.empty()) {
        throw failure(exit_code::usage, "OUT: '' is not possible; give a file's name or -");
    }
    if (access(folder_of(name).c_str(), W_OK | X_OK) != 0) {
        throw cannot_write(name, errno);
    }
}

void check_output_name(const std::string& name, bool replace)
{
    struct stat state = {};
    if (name == standard_output && isatty(STDOUT_FILENO) == 1) {
        throw failure(exit_code::usage, "OUT: '-' is a terminal, which cannot show it; give a "
                                        "file's name, or send it to a file or a program");
    }
    if (name == standard_output) {
        return;
    }
    if (stat(name.c_str(), &state) != 0) {
        check_output_folder(name);
        return;
    }
    if (S_ISDIR(state.st_mode)) {
        throw failure(exit_code::usage, name + " is a folder; give the name of a file");
    }
    if (S_ISREG(state.st_mode) && !replace) {
        throw failure(exit_code::usage,
                      name + " exists; give another name, or --force to replace it");
    }
    if (access(name.c_str(), W_OK) != 0) {
        throw cannot_write(name, errno);
    }
}

} // namespace tool
