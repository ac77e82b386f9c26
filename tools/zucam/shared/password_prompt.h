// Asking for a password at a terminal, without showing it.
#pragma once

#include "shared/stop_signals.h"

#include <string>

namespace tool
{

// Whether somebody sits at standard input and can see standard error.
bool can_ask_for_password();

// The line that is typed, without its end; what it is when input ends. Throws an interruption, and
// always leaves the terminal as it was.
std::string ask_for_password(stop_signals& signals, const std::string& user,
                             const std::string& camera);

} // namespace tool
