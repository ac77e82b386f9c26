// Printing with write(2) alone, so that no line is held back and every failure is seen at once.
#include "shared/console.h"

#include "shared/exit_codes.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool
{

namespace
{

const std::string program = "zucam: ";
const std::string erase_line = "\r\033[K";
constexpr std::size_t usual_columns = 80;

// 0, or why not. A descriptor that somebody has made non-blocking is waited for.
int write_all(int descriptor, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            pollfd wanted = {descriptor, POLLOUT, 0};
            (void)poll(&wanted, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// In UTF-8.
bool continues_character(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t width_of(const std::string& text)
{
    const auto characters = std::count_if(text.begin(), text.end(),
                                          [](char each) { return !continues_character(each); });
    return static_cast<std::size_t>(characters);
}

std::string cut(const std::string& text, std::size_t width)
{
    std::size_t end = 0;
    for (std::size_t so_far = 0; end < text.size(); ++end) {
        so_far += continues_character(text[end]) ? 0 : 1;
        if (so_far > width) {
            break;
        }
    }
    return text.substr(0, end);
}

bool can_erase_lines()
{
    const char* const terminal = std::getenv("TERM");
    return terminal == nullptr || std::strcmp(terminal, "dumb") != 0;
}

std::size_t columns()
{
    winsize size = {};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : usual_columns;
}

} // namespace

void console::set(const manner& how)
{
    how_ = how;
}

void console::hide(const std::string& secret)
{
    hidden_.add(secret);
}

secrets& console::hidden()
{
    return hidden_;
}

std::string console::shown(const std::string& name) const
{
    return name == "-" ? "standard output" : hidden_.blanked(name);
}

bool console::wants_json() const
{
    return how_.json;
}

int console::verbose() const
{
    return how_.verbose;
}

void console::data(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    erase_live();
    const int failed = write_all(STDOUT_FILENO, line + "\n");
    if (failed == EPIPE) {
        throw reader_gone();
    }
    if (failed != 0) {
        throw failure(exit_code::output,
                      std::string("cannot write to standard output: ") + std::strerror(failed));
    }
    draw_live();
}

void console::data(const json& object)
{
    data(object.dump(-1, ' ', false, json::error_handler_t::replace));
}

void console::say(const std::string& line)
{
    if (!how_.quiet) {
        message(line);
    }
}

void console::detail(const std::string& line)
{
    if (how_.verbose >= 1) {
        message(line);
    }
}

void console::trace(const std::string& line)
{
    if (how_.verbose >= 2) {
        message(line);
    }
}

void console::complain(const std::string& line)
{
    message(line);
}

void console::message(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    erase_live();
    (void)write_all(STDERR_FILENO, program + hidden_.blanked(line) + "\n");
    draw_live();
}

bool console::has_live_line() const
{
    return !how_.quiet && !how_.json && isatty(STDERR_FILENO) == 1 && can_erase_lines();
}

void console::live(std::vector<std::string> shapes)
{
    if (!has_live_line()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    live_ = std::move(shapes);
    draw_live();
}

void console::end_live()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    erase_live();
    live_.clear();
}

void console::erase_live()
{
    if (!live_.empty()) {
        (void)write_all(STDERR_FILENO, erase_line);
    }
}

// One line of the terminal at most: what wraps cannot be erased.
void console::draw_live()
{
    if (live_.empty()) {
        return;
    }
    const std::size_t room = columns() - 1;
    std::string line;
    for (const std::string& shape : live_) {
        line = hidden_.blanked(shape);
        if (width_of(line) <= room) {
            break;
        }
    }
    (void)write_all(STDERR_FILENO, erase_line + cut(line, room));
}

} // namespace tool
