// What the process holds. See process_probe.h.
#include "process_probe.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

#include "eventually.h"

namespace support
{

namespace
{

std::vector<int> numbers_in(const char* directory)
{
    std::vector<int> out;
    DIR* dir = opendir(directory);
    const int own = dirfd(dir);
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == own) {
            continue;
        }
        out.push_back(std::atoi(entry->d_name));
    }
    closedir(dir);
    std::sort(out.begin(), out.end());
    return out;
}

std::string describe(int fd)
{
    char target[256] = {};
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (readlink(path.c_str(), target, sizeof(target) - 1) < 0) {
        return "gone";
    }
    return target;
}

} // namespace

std::vector<int> open_descriptors()
{
    return numbers_in("/proc/self/fd");
}

int thread_count()
{
    return static_cast<int>(numbers_in("/proc/self/task").size());
}

int threads_named(const std::string& name)
{
    int count = 0;
    for (const int tid : numbers_in("/proc/self/task")) {
        std::ifstream comm("/proc/self/task/" + std::to_string(tid) + "/comm");
        std::string own;
        std::getline(comm, own);
        count += own == name.substr(0, 15) ? 1 : 0;
    }
    return count;
}

size_t resident_kib()
{
    std::ifstream statm("/proc/self/statm");
    size_t total = 0;
    size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

// The thread sanitizer starts a thread of its own with the first thread of the process; it is to be
// there before the count, and the first is not: a joined thread stays in the list for a moment.
static int settled_thread_count()
{
    pid_t first = 0;
    std::thread([&] { first = gettid(); }).join();
    eventually([=] {
        const auto all = numbers_in("/proc/self/task");
        return !std::binary_search(all.begin(), all.end(), first);
    });
    return thread_count();
}

inventory::inventory() : descriptors(open_descriptors()), threads(settled_thread_count())
{
}

std::string inventory::left_over() const
{
    eventually([&] { return thread_count() <= threads && open_descriptors() == descriptors; });
    std::string out;
    if (thread_count() > threads) {
        out += std::to_string(thread_count() - threads) + " threads; ";
    }
    for (const int fd : open_descriptors()) {
        if (!std::binary_search(descriptors.begin(), descriptors.end(), fd)) {
            out += "descriptor " + std::to_string(fd) + " (" + describe(fd) + "); ";
        }
    }
    for (const int fd : descriptors) {
        const auto now = open_descriptors();
        if (!std::binary_search(now.begin(), now.end(), fd)) {
            out += "descriptor " + std::to_string(fd) + " has been closed; ";
        }
    }
    return out;
}

bool allow_descriptors(size_t count)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= count) {
        return true;
    }
    limit.rlim_cur = count;
    limit.rlim_max = std::max<rlim_t>(limit.rlim_max, count);
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

} // namespace support
