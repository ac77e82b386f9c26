// The groups of figures. Each runs its rounds and adds its rows; reference and library take turns.
#pragma once

#include "figures.h"

namespace bench
{

constexpr int rounds = 5;

void measure_stream(report& out);
void measure_request(report& out);
void measure_scale(report& out);
void measure_idle(report& out);
void measure_login(report& out);
void measure_peers(report& out);

} // namespace bench
