// The groups of figures. Each runs its rounds and adds its rows; reference and library take turns.
#pragma once

#include "figures.h"

namespace bench
{

constexpr int rounds = 5;
constexpr double frames_a_second = 25; // of the cameras that send at their time

void measure_stream(report& out);
void measure_request(report& out);
void measure_scale(report& out);
void measure_idle(report& out);
void measure_login(report& out);
void measure_peers(report& out);

} // namespace bench
