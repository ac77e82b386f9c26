// The way of a log line. See log_route.hpp.
//
// The handler is published by one atomic pointer. A line counts itself as under way before it looks
// at the pointer, and closing stores null before it looks at the count: one of the two always sees
// the other. The secrets have a lock, held while one line is searched; it is a plain static without
// a destructor that does anything, as are the other statics here.
#include "log_route.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "zu_net_dev_api.h"

namespace zu::detail
{

namespace
{

constexpr std::size_t line_limit = 255;
constexpr std::string_view blank = "***";

std::atomic<const LogHandler*> route{nullptr};
std::atomic<bool> trace_wanted{false};
std::atomic<int> lines_under_way{0};
thread_local int quiet;
thread_local bool in_handler;

std::mutex secrets_guard;

// Longest first, so that one that begins like another is blanked out whole.
std::vector<std::string>& secrets()
{
    static auto& all = *new std::vector<std::string>;
    return all;
}

// The length of the secret that begins `text`; 0 when none does.
std::size_t secret_at(std::string_view text)
{
    for (const std::string& secret : secrets()) {
        if (text.substr(0, secret.size()) == secret) {
            return secret.size();
        }
    }
    return 0;
}

// A line without its end and its secrets.
class CleanLine
{
public:
    explicit CleanLine(const char* line)
    {
        char copy[line_limit]; // at once: the line stands in a buffer that all threads write to
        std::size_t length = strnlen(line, sizeof(copy));
        memcpy(copy, line, length);
        while (length > 0 && (copy[length - 1] == '\n' || copy[length - 1] == '\r')) {
            --length;
        }
        const std::lock_guard<std::mutex> lock(secrets_guard);
        take({copy, length});
    }

    std::string_view text() const
    {
        return {clean, size};
    }

private:
    void take(std::string_view line)
    {
        while (!line.empty()) {
            const std::size_t secret = secret_at(line);
            add(secret > 0 ? blank : line.substr(0, 1));
            line.remove_prefix(secret > 0 ? secret : 1);
        }
    }
    void add(std::string_view more)
    {
        memcpy(clean + size, more.data(), more.size());
        size += more.size();
    }

    char clean[line_limit * blank.size()];
    std::size_t size = 0;
};

void pass_on(const LogHandler& handler, int type, const char* line)
{
    const CleanLine clean(line);
    in_handler = true; // what the handler calls may log; that would never end
    handler({type == ZU_LOG_TYPE_ERROR, clean.text()});
    in_handler = false;
}

extern "C" void zu_client_take_log_line(int type, const char* line) noexcept
{
    if (quiet > 0 || in_handler || (type != ZU_LOG_TYPE_ERROR && !trace_wanted)) {
        return;
    }
    ++lines_under_way;
    if (const LogHandler* const handler = route) {
        pass_on(*handler, type, line);
    }
    --lines_under_way;
}

} // namespace

void open_log_route(const LogHandler& handler, bool trace)
{
    trace_wanted = trace;
    route = handler ? &handler : nullptr;
    ZU_NET_DEV_SetLogCallback(zu_client_take_log_line);
}

void close_log_route()
{
    route = nullptr;
    while (lines_under_way != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

Secret::Secret(std::string its) : text(std::move(its))
{
    if (text.empty()) {
        return;
    }
    const auto longer = [](const std::string& a, const std::string& b) {
        return a.size() > b.size();
    };
    const std::lock_guard<std::mutex> lock(secrets_guard);
    auto& all = secrets();
    all.insert(std::upper_bound(all.begin(), all.end(), text, longer), text);
}

Secret::~Secret()
{
    if (text.empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(secrets_guard);
    auto& all = secrets();
    all.erase(std::find(all.begin(), all.end(), text));
}

QuietLog::QuietLog()
{
    ++quiet;
}

QuietLog::~QuietLog()
{
    --quiet;
}

} // namespace zu::detail
