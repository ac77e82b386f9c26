// What the library has logged, line by line, exactly.
//
// The library's own buffers are shared by all threads, so lines that are written at once may reach
// a log callback mixed. The tap therefore sits in front of them: it takes every line whose level
// let it through, from whichever thread, keeps it under a lock of its own and passes it on. Tests
// of the line format and of delivery use a log callback instead.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "eventually.h"

namespace support
{

struct log_line {
    int type;
    std::string function;
    std::string message;
};

class log_tap
{
public:
    // Installs itself and sets the log level. One tap at a time.
    explicit log_tap(int level);
    ~log_tap(); // level 0 again
    log_tap(const log_tap&) = delete;
    log_tap& operator=(const log_tap&) = delete;

    std::vector<log_line> lines() const;
    std::vector<log_line> lines_of(const std::string& function) const;
    // The messages of one function, in order.
    std::vector<std::string> messages_of(const std::string& function) const;
    int count(const std::string& message) const;
    bool has(const std::string& message) const;
    bool has(int type, const std::string& function, const std::string& message) const;
    // Whether a message begins so; for texts with numbers that a test can't know.
    bool has_beginning(const std::string& text) const;

    bool wait_for(const std::string& message,
                  std::chrono::milliseconds deadline = long_enough) const;
    bool wait_for_beginning(const std::string& text,
                            std::chrono::milliseconds deadline = long_enough) const;
    void forget();

    // For the tap's place in front of the library only.
    static void take(int type, const char* function, const char* message);

private:
    mutable std::mutex guard;
    std::vector<log_line> taken;
};

// Stops threads of the library at a line: a thread of `function` that writes a message with this
// beginning waits there, as long as the hold lives or until let_go. The level must let the line
// through, and a tap need not be installed. This is how a test freezes one moment of another
// thread.
class log_hold
{
public:
    log_hold(const std::string& function, const std::string& beginning);
    ~log_hold();
    log_hold(const log_hold&) = delete;
    log_hold& operator=(const log_hold&) = delete;

    // Waits until a thread stands at the line.
    bool reached(std::chrono::milliseconds deadline = long_enough) const;
    void let_go(); // for good

    // For the tap's place in front of the library only.
    static void pass(const std::string& function, const std::string& message);

    struct barrier;

private:
    std::shared_ptr<barrier> own;
};

// Sets the log level without the public function, so that -1 can be set too.
void set_log_level(int level);

} // namespace support
