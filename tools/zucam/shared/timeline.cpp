// Entries as lines: "16:08:49.123  link down", or as objects with the time in UTC and in seconds
// since the begin.
#include "shared/timeline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <fmt/format.h>

namespace tool
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::system_clock;

system_clock::time_point on_the_wall(zu::Clock::time_point at)
{
    return system_clock::now() -
           std::chrono::duration_cast<system_clock::duration>(zu::Clock::now() - at);
}

std::string formatted(system_clock::time_point time, bool utc)
{
    const std::time_t seconds = system_clock::to_time_t(time);
    const auto since_epoch =
        std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
    std::tm parts = {};
    std::array<char, 32> text = {};
    (void)(utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts));
    (void)std::strftime(text.data(), text.size(), utc ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S", &parts);
    return fmt::format("{}.{:03}{}", text.data(), since_epoch % 1000, utc ? "Z" : "");
}

std::string as_words(const json& details)
{
    std::string words;
    for (const auto& [name, value] : details.items()) {
        std::string word = value.is_string() ? value.get<std::string>() : value.dump();
        if (value.is_number_float()) {
            word = fmt::format("{:.2f}", value.get<double>());
        }
        words += fmt::format("{}{} {}", words.empty() ? ": " : ", ", name, word);
    }
    std::replace(words.begin(), words.end(), '_', ' ');
    return words;
}

} // namespace

void timeline::add(zu::Clock::time_point at, const std::string& event, const json& details,
                   bool minor)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back({at, event, details, minor});
}

void timeline::print(console& out)
{
    std::deque<entry> latest;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        latest.swap(entries_);
    }
    for (const entry& each : latest) {
        print(out, each);
    }
}

void timeline::print(console& out, const entry& each) const
{
    const system_clock::time_point time = on_the_wall(each.at);
    if (out.wants_json()) {
        json object = {{"time", formatted(time, true)},
                       {"seconds", std::chrono::duration<double>(each.at - began_).count()},
                       {"event", each.event}};
        object.update(each.details.is_null() ? json::object() : each.details);
        out.data(object);
    } else if (!each.minor || out.verbose() > 0) {
        out.data(formatted(time, false) + "  " + each.event + as_words(each.details));
    }
}

} // namespace tool
