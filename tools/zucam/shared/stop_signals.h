// SIGINT, SIGTERM and SIGHUP, taken by a thread of their own: a handler that runs on a thread of
// the library would end its connection. So the signals are blocked before any other thread is made.
//
// Until a command says that it has something to finish, the first signal ends the program at once;
// from then on the first one asks, and a second one ends it. SIGHUP stays ignored where it was
// (nohup).
#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace tool
{

class stop_signals
{
public:
    // Also ignores SIGPIPE and SIGXFSZ, whose causes are told by the failed write. Throws
    // std::system_error.
    stop_signals();
    ~stop_signals();
    stop_signals(const stop_signals&) = delete;
    stop_signals& operator=(const stop_signals&) = delete;

    void finish_orderly(bool orderly = true);
    bool asked_to_end() const;
    // Readable from the moment on that the end is asked for; for poll.
    int descriptor() const;
    // Returns early when the end is asked for.
    void wait(std::chrono::milliseconds duration) const;

    // Gives the signals back as they were found, for a program to be executed in our place.
    void hand_back();

private:
    void watch();

    sigset_t before_ = {};
    int signals_ = -1;
    int asked_ = -1;
    int ended_ = -1;
    std::atomic<bool> orderly_{false};
    std::atomic<bool> asked_to_end_{false};
    std::thread watcher_;
};

} // namespace tool
