// What the library has logged. See log_tap.h.
//
// The linker sends every call of log_write here (--wrap) and names the real one __real_...
#include "log_tap.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "log.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives
extern "C" void __real__Z9log_writeiPKciS0_z(int, const char*, int, const char*, ...);

extern "C" void __wrap__Z9log_writeiPKciS0_z(int type, const char* function, int line,
                                             const char* format, ...)
{
    const int error = errno;
    char message[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    support::log_tap::take(type, function, message);
    errno = error;
    __real__Z9log_writeiPKciS0_z(type, function, line, "%s", message);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace support
{

namespace
{

std::mutex installing;
log_tap* installed;

// Lines reach the tap; standard output is kept for the test's own words.
void swallow(int /*type*/, const char* /*line*/)
{
}

} // namespace

log_tap::log_tap(int level)
{
    if (info_callback == nullptr) {
        ZU_NET_DEV_SetLogCallback(swallow);
    }
    {
        const std::lock_guard<std::mutex> lock(installing);
        installed = this;
    }
    set_log_level(level);
}

log_tap::~log_tap()
{
    set_log_level(0);
    const std::lock_guard<std::mutex> lock(installing);
    installed = nullptr;
}

void log_tap::take(int type, const char* function, const char* message)
{
    const std::lock_guard<std::mutex> lock(installing);
    if (installed != nullptr) {
        const std::lock_guard<std::mutex> inner(installed->guard);
        installed->taken.push_back({type, function, message});
    }
}

std::vector<log_line> log_tap::lines() const
{
    const std::lock_guard<std::mutex> lock(guard);
    return taken;
}

std::vector<log_line> log_tap::lines_of(const std::string& function) const
{
    std::vector<log_line> out;
    for (const auto& line : lines()) {
        if (line.function == function) {
            out.push_back(line);
        }
    }
    return out;
}

std::vector<std::string> log_tap::messages_of(const std::string& function) const
{
    std::vector<std::string> out;
    for (const auto& line : lines_of(function)) {
        out.push_back(line.message);
    }
    return out;
}

int log_tap::count(const std::string& message) const
{
    const auto all = lines();
    return static_cast<int>(std::count_if(
        all.begin(), all.end(), [&](const log_line& line) { return line.message == message; }));
}

bool log_tap::has(const std::string& message) const
{
    return count(message) > 0;
}

bool log_tap::has(int type, const std::string& function, const std::string& message) const
{
    const auto all = lines();
    return std::any_of(all.begin(), all.end(), [&](const log_line& line) {
        return line.type == type && line.function == function && line.message == message;
    });
}

bool log_tap::has_beginning(const std::string& text) const
{
    const auto all = lines();
    return std::any_of(all.begin(), all.end(), [&](const log_line& line) {
        return line.message.compare(0, text.size(), text) == 0;
    });
}

bool log_tap::wait_for(const std::string& message, std::chrono::milliseconds deadline) const
{
    return eventually([&] { return has(message); }, deadline);
}

bool log_tap::wait_for_beginning(const std::string& text, std::chrono::milliseconds deadline) const
{
    return eventually([&] { return has_beginning(text); }, deadline);
}

void log_tap::forget()
{
    const std::lock_guard<std::mutex> lock(guard);
    taken.clear();
}

void set_log_level(int level)
{
    log_level = level;
}

} // namespace support
