// What the library is expected to log. See log_story.h.
#include "log_story.h"

#include <algorithm>
#include <iterator>

namespace support
{

told trace(const std::string& message)
{
    return {log_at_trace_level, 7, message};
}

told error(const std::string& message)
{
    return {log_at_error_levels, 0, message};
}

story operator+(story left, const story& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bool let_through(log_gate gate, int level)
{
    switch (gate) {
    case log_at_every_level:
        return true;
    case log_at_error_levels:
        return level == 1 || level == 2;
    default:
        return level == 2;
    }
}

story let_through(const story& whole, int level)
{
    story part;
    std::copy_if(whole.begin(), whole.end(), std::back_inserter(part),
                 [level](const told& line) { return let_through(line.gate, level); });
    return part;
}

static bool fits(const char* pattern, const char* message)
{
    if (*pattern == '*') {
        return fits(pattern + 1, message) || (*message != 0 && fits(pattern, message + 1));
    }
    return *pattern == *message && (*message == 0 || fits(pattern + 1, message + 1));
}

static bool fits(const log_line& wanted, const log_line& found)
{
    return wanted.type == found.type && wanted.function == found.function &&
           fits(wanted.message.c_str(), found.message.c_str());
}

// One line for each; a message that doesn't end its line is shown as such.
static std::string text_of(const std::vector<log_line>& lines)
{
    std::string out;
    for (const log_line& line : lines) {
        const bool ends = !line.message.empty() && line.message.back() == '\n';
        out += "  " + std::to_string(line.type) + " " + line.function + ": " + line.message +
               (ends ? "" : "[no line end]\n");
    }
    return out;
}

testing::AssertionResult is_story(const std::vector<log_line>& lines, const std::string& function,
                                  int level, const story& whole)
{
    std::vector<log_line> wanted;
    for (const told& line : let_through(whole, level)) {
        wanted.push_back(
            {line.type, line.function.empty() ? function : line.function, line.message});
    }
    if (std::equal(wanted.begin(), wanted.end(), lines.begin(), lines.end(),
                   [](const log_line& w, const log_line& f) { return fits(w, f); })) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << function << " at level " << level << "\nexpected:\n"
                                       << text_of(wanted) << "found:\n"
                                       << text_of(lines);
}

testing::AssertionResult all_told(const log_tap& log, const std::string& function, int level,
                                  const story& whole)
{
    return is_story(log.lines(), function, level, whole);
}

testing::AssertionResult told_by(const log_tap& log, const std::string& function, int level,
                                 const story& whole)
{
    return is_story(log.lines_of(function), function, level, whole);
}

std::string level_text(int level)
{
    return "Level" + (level < 0 ? "Minus" + std::to_string(-level) : std::to_string(level));
}

std::string level_name(const testing::TestParamInfo<int>& info)
{
    return level_text(info.param);
}

} // namespace support
