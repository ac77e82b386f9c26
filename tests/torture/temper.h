// What a random life is like, drawn from its seed.
#pragma once

#include <initializer_list>
#include <random>

#include "scheduler.h"

namespace torture
{

// Draws from a seed of its own, apart from the scheduler's.
class dice
{
public:
    explicit dice(unsigned seed) : engine(seed)
    {
    }
    unsigned below(unsigned bound)
    {
        return engine() % bound;
    }
    bool one_in(unsigned chances)
    {
        return chances != 0 && below(chances) == 0;
    }
    sim::micros up_to(sim::micros most)
    {
        return static_cast<sim::micros>(engine()) % (most + 1);
    }
    template <class Choice>
    Choice any_of(std::initializer_list<Choice> choices)
    {
        return *(choices.begin() + below(static_cast<unsigned>(choices.size())));
    }

private:
    std::mt19937 engine;
};

// What this life is like; fixed at its start.
struct temper {
    int log_level;
    unsigned restless;     // see scheduler::set_restlessness
    unsigned failing;      // one call in so many fails
    unsigned late;         // one call in so many comes late
    unsigned late_threads; // one thread in so many begins late
    unsigned slow_lines;   // one line in so many is slow to deliver
    unsigned slow_callbacks;
    unsigned calls_in_events; // one event callback in so many calls the library
    unsigned moody_devices;   // a device changes its ways so many times
    unsigned logins;
    unsigned threads; // of each login
};

inline temper draw(dice& d)
{
    return {d.any_of({1, 2}),
            d.any_of({0U, 200U, 20U, 3U}),
            d.any_of({0U, 0U, 1000U, 200U, 40U}),
            d.any_of({0U, 500U, 50U}),
            d.any_of({0U, 8U, 2U}),
            d.any_of({0U, 0U, 50U, 4U}),
            d.any_of({0U, 20U, 2U}),
            d.any_of({0U, 5U}),
            d.below(7),
            1 + d.below(3),
            1 + d.below(4)};
}

} // namespace torture
