// The C library for as long as it is needed: log level, log lines, Init and DeInit.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace zu
{

namespace detail
{
class LibraryCore;
}

// A line of the log, without its line end.
struct LogLine {
    bool error;            // or trace
    std::string_view text; // valid during the call; passwords of cameras are blanked out
};

// Called by whichever thread logs, by several at once. Must be quick and must not throw; it may not
// construct or destroy a camera or a library, nor make a request. What it writes to the log itself
// does not come to it.
using LogHandler = std::function<void(const LogLine&)>;

struct LibraryOptions {
    LogHandler log;     // lines go nowhere without one, and never to standard output
    bool trace = false; // every step of every thread, not only what went wrong
};

// Initialises the C library. Exactly one object may exist at a time; every camera needs it to be
// there when it logs in, and keeps what is behind it until it has ended, so the order in which they
// are destroyed does not matter.
//
// Sets log level 1 (2 with `trace`): below that the C library's requests have no time limit. A
// program that uses the C interface beside this layer must leave level and log callback alone.
class Library
{
public:
    // Throws std::system_error with Errc::library_in_use.
    explicit Library(LibraryOptions options = {});
    // The log handler is not called any more when it returns; it waits for one that runs, and for
    // nothing else. Cameras that live keep the C library, so another zu::Library has to wait for
    // them.
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

private:
    std::shared_ptr<detail::LibraryCore> core;
};

} // namespace zu
