// Parsing of option values. Every parser takes the option's name, so that
// its refusal names it and says what would be right. The whole text must be
// a value: trailing letters and leading blanks are refused, not ignored. No
// state; called before any thread runs.
#include "option_values.h"

#include "virtual_camera/journal.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zucam
{

namespace
{

constexpr std::int64_t side_least = 64;
constexpr std::int64_t width_most = 4096;
constexpr std::int64_t height_most = 2304;

std::optional<std::int64_t> whole_number(const std::string& text)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front())) != 0) {
        return std::nullopt;
    }
    const std::size_t digits = text.front() == '-' || text.front() == '+' ? 1 : 0;
    const int base = text.compare(digits, 2, "0x") == 0 ? 16 : 10;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, base);
    if (errno != 0 || *end != '\0' || end == text.c_str()) {
        return std::nullopt;
    }
    return value;
}

bool is_even_within(std::int64_t side, std::int64_t most)
{
    return side >= side_least && side <= most && side % 2 == 0;
}

} // namespace

std::int64_t parse_number(const std::string& option, const std::string& text,
                          const number_range& range)
{
    const auto value = whole_number(text);
    if (!value || *value < range.least || *value > range.most) {
        throw bad_value(option, text,
                        std::string(range.what) + ", " + std::to_string(range.least) + " to " +
                            std::to_string(range.most));
    }
    return *value;
}

std::int64_t parse_seconds(const std::string& option, const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool whole = !text.empty() && *end == '\0' &&
                       std::isspace(static_cast<unsigned char>(text.front())) == 0;
    if (!whole || !(value >= 0.001 && value <= 1e6)) {
        throw bad_value(option, text, "seconds, 0.001 to 1000000");
    }
    return std::llround(value * 1000.0);
}

std::pair<unsigned, unsigned> parse_size(const std::string& option, const std::string& text)
{
    const std::size_t cross = std::min(text.find('x', 1), text.size());
    const std::int64_t width = whole_number(text.substr(0, cross)).value_or(0);
    const std::string rest = text.substr(std::min(cross + 1, text.size()));
    const std::int64_t height = whole_number(rest).value_or(0);
    if (!is_even_within(width, width_most) || !is_even_within(height, height_most)) {
        throw bad_value(option, text, "WIDTHxHEIGHT, even, 64x64 to 4096x2304, such as 1280x720");
    }
    return {static_cast<unsigned>(width), static_cast<unsigned>(height)};
}

std::uint32_t parse_request_type(const std::string& option, const std::string& text)
{
    if (const auto named = request_named(text)) {
        return *named;
    }
    const auto value = whole_number(text);
    if (!value || *value < 0 || *value > UINT32_MAX) {
        throw bad_value(option, text,
                        "start, stop, heartbeat, ptz, preset, keyframe, setconfig, getconfig or a "
                        "message code such as 0x1001");
    }
    return static_cast<std::uint32_t>(*value);
}

} // namespace zucam
