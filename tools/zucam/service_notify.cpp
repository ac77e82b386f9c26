// The manager's protocol: NOTIFY_SOCKET names a datagram socket, in the file system or, behind '@',
// in the abstract name space; WATCHDOG_USEC is the watchdog's time, for the process WATCHDOG_PID if
// that is given. Each datagram has lines of the form NAME=VALUE.
#include "service_notify.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace tool
{

namespace
{

std::string take_variable(const char* name)
{
    const char* const value = std::getenv(name);
    std::string taken = value == nullptr ? "" : value;
    unsetenv(name);
    return taken;
}

std::optional<service_notify::clock::duration> watchdog_of_this_process()
{
    const std::string pid = take_variable("WATCHDOG_PID");
    const std::string time = take_variable("WATCHDOG_USEC");
    if (!pid.empty() && pid != std::to_string(getpid())) {
        return {};
    }
    const long long microseconds = std::strtoll(time.c_str(), nullptr, 10);
    if (microseconds <= 0) {
        return {};
    }
    return std::chrono::microseconds(microseconds);
}

} // namespace

service_notify::service_notify() : watchdog_(watchdog_of_this_process())
{
    const std::string path = take_variable("NOTIFY_SOCKET");
    if (path.size() < 2 || path.size() > sizeof(address_.sun_path) ||
        (path[0] != '/' && path[0] != '@')) {
        return;
    }
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, path.data(), path.size());
    if (path[0] == '@') {
        address_.sun_path[0] = '\0';
    }
    address_size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

service_notify::~service_notify()
{
    if (socket_ >= 0) {
        close(socket_);
    }
}

void service_notify::media_came(clock::time_point now)
{
    if (!fed_) {
        if (say("READY=1\nWATCHDOG=1")) {
            fed_ = now;
        }
    } else if (watchdog_ && now - *fed_ >= *watchdog_ / 3) {
        if (say("WATCHDOG=1")) {
            fed_ = now;
        }
    }
}

void service_notify::ends()
{
    (void)say("STOPPING=1"); // the end itself will tell
}

// Whether the manager has got it. A full socket is no reason to hold up a recording.
bool service_notify::say(const std::string& what) const
{
    return socket_ >= 0 && sendto(socket_, what.data(), what.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr*>(&address_), address_size_) >= 0;
}

} // namespace tool
