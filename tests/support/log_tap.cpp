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
    support::log_hold::pass(function, message);
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

struct log_hold::barrier {
    std::string function;
    std::string beginning;
    int standing = 0; // this and the next: guarded by `holding`
    bool open = false;
};

// What is held and where; the barriers outlive their holds until the last thread has passed.
static std::mutex holding;
static std::condition_variable opened;
static std::vector<std::shared_ptr<log_hold::barrier>>& barriers()
{
    static std::vector<std::shared_ptr<log_hold::barrier>> all;
    return all;
}

log_hold::log_hold(const std::string& function, const std::string& beginning)
    : own(std::make_shared<barrier>())
{
    own->function = function;
    own->beginning = beginning;
    const std::lock_guard<std::mutex> lock(holding);
    barriers().push_back(own);
}

log_hold::~log_hold()
{
    let_go();
}

void log_hold::let_go()
{
    const std::lock_guard<std::mutex> lock(holding);
    own->open = true;
    auto& all = barriers();
    all.erase(std::remove(all.begin(), all.end(), own), all.end());
    opened.notify_all();
}

bool log_hold::reached(std::chrono::milliseconds deadline) const
{
    return eventually(
        [this] {
            const std::lock_guard<std::mutex> lock(holding);
            return own->standing > 0;
        },
        deadline);
}

void log_hold::pass(const std::string& function, const std::string& message)
{
    std::unique_lock<std::mutex> lock(holding);
    for (const auto& b : std::vector<std::shared_ptr<barrier>>(barriers())) {
        if (b->function == function && message.compare(0, b->beginning.size(), b->beginning) == 0) {
            b->standing++;
            opened.wait(lock, [&] { return b->open; });
        }
    }
}

void set_log_level(int level)
{
    log_level = level;
}

} // namespace support
