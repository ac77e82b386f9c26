// Parsing of numbers, times and bytes.
#include "shared/values.h"

#include "shared/exit_codes.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>

namespace tool
{

namespace
{

constexpr double longest = 1e6; // seconds or minutes

bool begins_with_blank(const std::string& text)
{
    return text.empty() || std::isspace(static_cast<unsigned char>(text.front())) != 0;
}

// A positive number that may have a fraction; nothing when it is none.
std::optional<double> amount(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (begins_with_blank(text) || *end != '\0' || !(value >= 0.001 && value <= longest)) {
        return std::nullopt;
    }
    return value;
}

int digit(char character)
{
    if (std::isdigit(static_cast<unsigned char>(character)) != 0) {
        return character - '0';
    }
    const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace

std::optional<std::int64_t> whole_number(const std::string& text)
{
    if (begins_with_blank(text)) {
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

std::int64_t parse_number(const std::string& option, const std::string& text,
                          const number_range& range)
{
    const auto value = whole_number(text);
    if (!value || *value < range.least || *value > range.most) {
        throw bad_value(option, text,
                        fmt::format("{}, {} to {}", range.what, range.least, range.most));
    }
    return *value;
}

std::chrono::milliseconds parse_seconds(const std::string& option, const std::string& text)
{
    const auto value = amount(text);
    if (!value) {
        throw bad_value(option, text, "seconds, 0.001 to 1000000");
    }
    return std::chrono::milliseconds(std::llround(*value * 1000.0));
}

std::chrono::milliseconds parse_minutes(const std::string& option, const std::string& text)
{
    const auto value = amount(text);
    if (!value) {
        throw bad_value(option, text, "minutes, 0.001 to 1000000");
    }
    return std::chrono::milliseconds(std::llround(*value * 60000.0));
}

std::optional<std::vector<std::uint8_t>> parse_hex(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    int half = -1; // the upper half of a byte, or none yet
    for (const char character : text) {
        const int value = digit(character);
        if (character == ' ' && half < 0) {
            continue;
        }
        if (value < 0) {
            return std::nullopt;
        }
        if (half < 0) {
            half = value;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(half * 16 + value));
            half = -1;
        }
    }
    return half < 0 ? std::make_optional(bytes) : std::nullopt;
}

std::string to_hex(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    const std::size_t end = text.find_last_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

std::string lower_case(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace tool
