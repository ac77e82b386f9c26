// One whole life of a login on a simulated machine, with everything that is told on the way: init,
// login, callbacks, a stream, a key frame, settings, a move, a heartbeat, a lost link and its
// reconnection, a stop, logout, deinit. What must hold after any run of it is checked here; what a
// single failed call must lead to is the table's matter (call_sites.h).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "machine.h"

namespace torture
{

struct told {
    unsigned thread; // 0 is the application's
    int type;
    std::string function;
    std::string message;
};

// An entry point that the scenario has called.
struct entry {
    std::string name;
    long result;
    size_t first_line; // among the lines told
    size_t end_line;
};

struct outcome {
    std::vector<entry> entries;
    std::vector<told> lines;
    std::vector<unsigned> events; // codes, in order
    size_t frames = 0;
    sim::micros lasted = 0;
    std::vector<std::string> breaches; // of what must hold always; empty when all is well

    bool undisturbed() const; // what a run without any fault comes to
};

// Something of the application's that happens beside the scenario: a Logout of its login, on a
// thread of its own. The scenario waits for all of them before DeInit, and one Logout must succeed,
// its own or another.
void log_out_beside();

// What watches a run, on whichever thread makes the call or writes the line.
struct watcher {
    std::function<sim::verdict(const sim::call&)> before_call;
    std::function<void(const told&)> on_line;
    std::function<void(const std::string& entry_point)> on_entry; // "" when it has returned
};

// `greeting` is what the device sends first on every link but the first.
outcome play(const watcher& watching, const std::string& greeting = "");

} // namespace torture
