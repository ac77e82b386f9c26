// A client process whose memory is measured. See roles.h.
#include <cstdio>
#include <deque>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "bare_links.h"
#include "logins.h"
#include "roles.h"

namespace bench
{

namespace
{

constexpr long frames_of_each = 10; // until everything that a stream uses has been used

// The kernel's own count of the process's pages, page by page, and not the sums it keeps, which
// run behind by up to 64 pages a processor.
double resident_kb()
{
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string word;
    while (rollup >> word) {
        if (word == "Rss:") {
            double kb = 0;
            rollup >> kb;
            return kb;
        }
    }
    throw std::runtime_error("/proc/self/smaps_rollup tells no resident memory");
}

class bare_crowd
{
public:
    bare_crowd(unsigned short port, int how_many, bool streaming)
    {
        for (int i = 0; i < how_many; i++) {
            links.push_back(std::make_unique<bare_login>(port, streaming));
        }
    }
    long taken() const
    {
        long sum = 0;
        for (const auto& each : links) {
            sum += each->taken();
        }
        return sum;
    }

private:
    std::deque<std::unique_ptr<bare_login>> links;
};

template <class Crowd>
double kb_of_each(unsigned short port, int how_many, bool streaming)
{
    const double before = resident_kb();
    const Crowd crowd(port, how_many, streaming);
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } while (streaming && crowd.taken() < frames_of_each * how_many);
    return (resident_kb() - before) / how_many;
}

} // namespace

void run_memory(const arguments& given)
{
    const bool streaming = given.at(1) == "streaming";
    const auto port = static_cast<unsigned short>(std::stoi(given.at(2)));
    const int how_many = std::stoi(given.at(3));
    const library in_use;
    std::printf("%.1f\n", given.at(0) == "library"
                              ? kb_of_each<login_crowd>(port, how_many, streaming)
                              : kb_of_each<bare_crowd>(port, how_many, streaming));
}

} // namespace bench
