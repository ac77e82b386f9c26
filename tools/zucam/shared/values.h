// Texts that people type, as values. The whole text must be a value: trailing letters and leading
// blanks are refused, not ignored. Each refusal is a failure of exit code 2 that names the option
// and says what would be right. No state.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

struct number_range {
    std::int64_t least;
    std::int64_t most;
    const char* what; // "a port"
};

// Decimal, or hexadecimal with 0x in front.
std::optional<std::int64_t> whole_number(const std::string& text);

std::int64_t parse_number(const std::string& option, const std::string& text,
                          const number_range& range);

// Seconds or minutes, with a fraction or without, as milliseconds.
std::chrono::milliseconds parse_seconds(const std::string& option, const std::string& text);
std::chrono::milliseconds parse_minutes(const std::string& option, const std::string& text);

// "01ff" or "01 ff"; nothing when it is no hexadecimal text of whole bytes.
std::optional<std::vector<std::uint8_t>> parse_hex(const std::string& text);
std::string to_hex(const std::vector<std::uint8_t>& bytes);

std::string trimmed(const std::string& text);
std::string lower_case(std::string text);

} // namespace tool
