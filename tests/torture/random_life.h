// A random life: several logins, each used by several threads at once, on devices that drop,
// refuse, fall silent and stall, while calls of the system fail or come late, callbacks are slow or
// call the library, and logouts come at any moment. All of it is drawn from one seed.
//
// What must hold, or else is told in the breaches: every call returns, results and error lines go
// together, exactly one Logout of a login succeeds, no callback begins after it, frames arrive
// whole and in order, and nothing is left at the end.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace torture
{

struct life_story {
    std::vector<std::string> breaches;
    std::map<std::string, long> counts; // of what has happened, by its name
};

life_story live_randomly(unsigned seed);

} // namespace torture
