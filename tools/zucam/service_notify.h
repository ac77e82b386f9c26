// What a service manager is told about a recording: that it has begun, that media still flows, that
// it ends. Plain datagrams to the socket that the manager has named in the environment; without one
// nothing is sent. Used by one thread.
//
// The watchdog is fed by media alone: a process that runs but records nothing is to be restarted.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace tool
{

class service_notify
{
public:
    using clock = std::chrono::steady_clock;

    // Takes the three variables of the manager out of the environment, for they are not meant for
    // programs that this one starts.
    service_notify();
    ~service_notify();
    service_notify(const service_notify&) = delete;
    service_notify& operator=(const service_notify&) = delete;

    // With the first media the service is ready. From then on the watchdog is fed, three times
    // within its time at most. What the manager could not take is said again with the next media.
    void media_came(clock::time_point now = clock::now());
    void ends();

private:
    bool say(const std::string& what) const;

    sockaddr_un address_ = {};
    socklen_t address_size_ = 0;
    int socket_ = -1;
    std::optional<clock::duration> watchdog_; // its time
    std::optional<clock::time_point> fed_;    // nothing until the service is ready
};

} // namespace tool
