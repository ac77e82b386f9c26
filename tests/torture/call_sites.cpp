// The places where the library calls the system. See call_sites.h.
#include "call_sites.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <unistd.h>

#include "scheduler.h"

namespace torture
{

namespace
{

const std::map<int, std::string> error_names = {
    {EACCES, "EACCES"},
    {EADDRINUSE, "EADDRINUSE"},
    {EADDRNOTAVAIL, "EADDRNOTAVAIL"},
    {EAGAIN, "EAGAIN"},
    {EBADF, "EBADF"},
    {ECHILD, "ECHILD"},
    {ECONNREFUSED, "ECONNREFUSED"},
    {ECONNRESET, "ECONNRESET"},
    {EHOSTUNREACH, "EHOSTUNREACH"},
    {EINTR, "EINTR"},
    {EINVAL, "EINVAL"},
    {EIO, "EIO"},
    {EMFILE, "EMFILE"},
    {ENETUNREACH, "ENETUNREACH"},
    {ENFILE, "ENFILE"},
    {ENOBUFS, "ENOBUFS"},
    {ENOMEM, "ENOMEM"},
    {ENOTCONN, "ENOTCONN"},
    {EOVERFLOW, "EOVERFLOW"},
    {EPERM, "EPERM"},
    {EPIPE, "EPIPE"},
    {ETIMEDOUT, "ETIMEDOUT"},
};

// Left out: joining, detaching, locking, unlocking and destroying fail only when the caller has got
// it wrong, which the simulated machine notices itself; clock_gettime and munmap can't fail with
// the arguments they are given; time can't fail at all.
const std::map<std::string, std::vector<int>> errors = {
    {"bind", {EADDRINUSE, EACCES, ENOMEM}},
    {"close", {EINTR, EIO}},
    {"connect", {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EHOSTUNREACH, EADDRNOTAVAIL, EINTR, EAGAIN}},
    {"fcntl", {EBADF, EINTR}},
    {"getsockname", {ENOBUFS, EBADF}},
    {"getsockopt", {ENOBUFS, EBADF}},
    {"gettimeofday", {EINVAL}},
    {"ioctl", {EBADF}},
    {"localtime_r", {EOVERFLOW}},
    {"mmap", {ENOMEM}},
    {"pipe", {EMFILE, ENFILE}},
    {"poll", {EINTR, ENOMEM}},
    {"ppoll", {EINTR, ENOMEM, EBADF}},
    {"prctl", {EINVAL}},
    {"pthread_create", {EAGAIN, EPERM}},
    {"pthread_mutex_init", {ENOMEM, EAGAIN}},
    {"read", {EINTR, EAGAIN, EIO}},
    {"recv", {EINTR, EAGAIN, ECONNRESET, ETIMEDOUT, ENOMEM, EBADF}},
    {"recvfrom", {EINTR, EAGAIN, ENOMEM, EBADF}},
    {"send", {EINTR, EAGAIN, ECONNRESET, EPIPE, ENOBUFS, EBADF}},
    {"sendto", {EINTR, EAGAIN, ENOBUFS, EPERM, EBADF}},
    {"setsockopt", {ENOMEM, EBADF}},
    {"shutdown", {ENOTCONN, ENOBUFS}},
    {"sleep", {EINTR}},
    {"socket", {EMFILE, ENFILE, ENOBUFS, ENOMEM}},
    {"usleep", {EINTR}},
    {"vfork", {EAGAIN, ENOMEM}},
    {"waitpid", {EINTR, ECHILD}},
    {"write", {EAGAIN, EINTR, EPIPE}},
};

// "(anonymous namespace)::drain(int)" is "drain".
std::string bare_name(std::string name)
{
    static const std::string local = "(anonymous namespace)::";
    for (size_t at = name.find(local); at != std::string::npos; at = name.find(local)) {
        name.erase(at, local.size());
    }
    return name.substr(0, name.find_first_of("(\n"));
}

struct source_place {
    std::string function;
    std::string path;

    bool in_library() const
    {
        return path.find("/source/src/") != std::string::npos;
    }
    std::string room() const // "tcp_link" of ".../tcp_link.cpp:12"
    {
        const size_t start = path.rfind('/') + 1;
        return path.substr(start, path.find('.', start) - start);
    }
};

std::string next_line(FILE* from)
{
    char line[1024];
    return fgets(line, sizeof(line), from) != nullptr ? line : "";
}

// Where in the sources addresses of this program lie, in the order asked.
std::vector<source_place> look_up(const std::vector<const void*>& addresses)
{
    char self[4096] = {};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) {
        sim::give_up("this program's own path can't be read");
    }
    std::ostringstream command;
    command << "addr2line --functions --demangle --exe=" << std::quoted(self);
    for (const void* address : addresses) {
        // Of the call itself, not of what follows it.
        command << ' ' << static_cast<const void*>(static_cast<const char*>(address) - 1);
    }
    FILE* pipe = popen(command.str().c_str(), "r");
    std::vector<source_place> out;
    for (size_t i = 0; pipe != nullptr && i < addresses.size(); i++) {
        const std::string function = next_line(pipe);
        out.push_back({bare_name(function), next_line(pipe)});
    }
    if (pipe == nullptr || pclose(pipe) != 0 || !out.front().in_library()) {
        sim::give_up("addr2line (Debian: binutils) does not say where the calls are");
    }
    return out;
}

} // namespace

const std::vector<int>& errors_of(const std::string& function)
{
    static const std::vector<int> none;
    const auto at = errors.find(function);
    return at == errors.end() ? none : at->second;
}

bool may_go_on(const std::string& function, int error)
{
    return function != "waitpid" || error != EINTR;
}

std::string error_name(int error)
{
    const auto at = error_names.find(error);
    return at == error_names.end() ? std::to_string(error) : at->second;
}

site_names::site_names(const std::map<sim::place, std::string>& calls)
{
    std::vector<const void*> addresses;
    for (const auto& [at, function] : calls) {
        addresses.push_back(at.here);
        addresses.push_back(at.caller);
    }
    const std::vector<source_place> places = look_up(addresses);
    size_t i = 0;
    for (const auto& [at, function] : calls) {
        const source_place& here = places[i++];
        const source_place& caller = places[i++];
        const std::string by = caller.in_library() ? caller.room() + ": " + caller.function + ", "
                                                   : here.room() + ": ";
        names[at] = by + here.function + ", " + function;
    }
}

const std::string& site_names::operator[](const sim::place& from) const
{
    return names.at(from);
}

std::string table_row(const std::string& site, int error, const std::string& result,
                      const std::string& line)
{
    const std::string head = site + " | " + error_name(error) + " | " + result + " | ";
    if (site.rfind("log: ", 0) == 0) {
        return head + (line == "-" ? line : "the line under way");
    }
    std::string shown = line.substr(0, 1); // the type
    for (const char c : line.substr(1)) {
        const bool digit = c >= '0' && c <= '9';
        if (c == '\n') {
            shown += "\\n";
        } else if (!digit) {
            shown += c;
        } else if (shown.empty() || shown.back() != '#') {
            shown += '#';
        }
    }
    return head + shown;
}

expectations::expectations(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        sim::give_up("the table '" + path + "' can't be read");
    }
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') {
            rows.insert(line);
        }
    }
}

std::vector<std::string> expectations::differences(const std::set<std::string>& met,
                                                   bool all_met) const
{
    std::vector<std::string> out;
    for (const std::string& row : met) {
        if (rows.count(row) == 0) {
            out.push_back("has no row in the table: " + row);
        }
    }
    for (const std::string& row : rows) {
        if (all_met && met.count(row) == 0) {
            out.push_back("was never met: " + row);
        }
    }
    return out;
}

} // namespace torture
