// The machine. See machine.h.
#include "machine.h"

#include <cstdlib>
#include <fstream>
#include <sys/utsname.h>
#include <thread>

namespace bench
{

namespace
{

std::string processor()
{
    std::ifstream info("/proc/cpuinfo");
    std::string line;
    while (std::getline(info, line)) {
        const std::size_t colon = line.find(": ");
        if (line.rfind("model name", 0) == 0 && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return "unknown processor";
}

} // namespace

std::string machine_in_words()
{
    utsname system = {};
    uname(&system);
    double load = 0;
    getloadavg(&load, 1);
    return std::to_string(std::thread::hardware_concurrency()) + " processors (" + processor() +
           "), Linux " + system.release + ", load " + std::to_string(load).substr(0, 4);
}

} // namespace bench
