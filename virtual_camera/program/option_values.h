// Option values as people write them: checked word by word, refused with one
// line that says what is wrong and what would be right. All refusals are one
// kind of exception, which the command line turns into that line and a
// status. No state; called before any thread runs.
#ifndef ZUCAM_OPTION_VALUES_H
#define ZUCAM_OPTION_VALUES_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace zucam
{

class bad_value : public std::runtime_error
{
public:
    bad_value(const std::string& option, const std::string& given, const std::string& right)
        : std::runtime_error(option + ": '" + given + "' is not possible; give " + right)
    {
    }
};

struct number_range {
    std::int64_t least;
    std::int64_t most;
    const char* what; // "frames a second"
};

// Decimal or 0x... numbers. Throws bad_value.
std::int64_t parse_number(const std::string& option, const std::string& text,
                          const number_range& range);
// Seconds with an optional fraction, 0.001 to 1e6, as milliseconds. Throws bad_value.
std::int64_t parse_seconds(const std::string& option, const std::string& text);
// "1280x720": even sides, 64x64 to 4096x2304. Throws bad_value.
std::pair<unsigned, unsigned> parse_size(const std::string& option, const std::string& text);
// "start", "heartbeat", ... or a number. Throws bad_value.
std::uint32_t parse_request_type(const std::string& option, const std::string& text);

} // namespace zucam

#endif
