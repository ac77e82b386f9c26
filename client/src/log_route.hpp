// The way of a log line from the C library to the program's handler.
//
// The C library's log callback can never be taken off, so the function at the head of the route
// stays safe for ever: it uses nothing that is ever destroyed, and allocates nothing. Lines come on
// any thread, on several at once.
#pragma once

#include <string>

#include "zu/library.hpp"

namespace zu::detail
{

// Takes the C library's lines from now on; without `trace` only the errors among them. An empty
// handler lets them go nowhere.
void open_log_route(const LogHandler& handler, bool trace);
// The handler is not called any more, and no call of it is running, when this returns. Not from the
// handler. The handler must live until then.
void close_log_route();

// A text that is blanked out in all lines as long as the object lives.
class Secret
{
public:
    explicit Secret(std::string text);
    ~Secret();
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

private:
    const std::string text;
};

// While it lives, the lines of the calling thread go nowhere. For calls that may fail in the course
// of things.
class QuietLog
{
public:
    QuietLog();
    ~QuietLog();
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

} // namespace zu::detail
