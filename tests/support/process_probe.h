// What the process holds: descriptors, threads, memory. For the last act of a test, which proves
// that nothing is left.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace support
{

// The numbers of the open descriptors, without the one that the look takes itself.
std::vector<int> open_descriptors();

int thread_count();
// How many threads bear a name (the system keeps its first 15 characters).
int threads_named(const std::string& name);

size_t resident_kib();

// What the process held at one moment; left_over says in words what is more by now, after waiting
// a while for threads that are on their way out. Empty when nothing is.
class inventory
{
public:
    inventory();
    std::string left_over() const;

private:
    std::vector<int> descriptors;
    int threads;
};

// Raises the limit of open files; false when the system does not allow it.
bool allow_descriptors(size_t count);

} // namespace support
