// The machine on which the figures were taken, in a line.
#pragma once

#include <string>

namespace bench
{

// Processors, kernel, and how many programs wanted to run in the last minute.
std::string machine_in_words();

} // namespace bench
